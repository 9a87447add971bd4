// SPDX-License-Identifier: GPL-3.0-or-later
//
// Walking and reading a system that may be anything: see the header for what is guarded against.
#include "kestrelctl/doctor_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <system_error>

#include "kestrelctl/descriptor.h"
#include "kestrelctl/text.h"

namespace kestrelctl::doctor {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t most_file_bytes = std::size_t{1} << 20;
constexpr std::size_t most_entries = 65536;
constexpr std::size_t most_shown_bytes = 80;
constexpr unsigned most_links = 40;  // as in the kernel's own walk

/// The parts of a path that are still to be walked, the next one last.
void push_parts(std::vector<std::string>& pending, const fs::path& path) {
  const auto relative = path.relative_path();
  const std::vector<std::string> parts(relative.begin(), relative.end());
  pending.insert(pending.end(), parts.rbegin(), parts.rend());
}

Access access_of(const std::error_code& error) {
  const bool missing = error == std::errc::no_such_file_or_directory ||
                       error == std::errc::not_a_directory || error == std::errc::filename_too_long;
  return missing ? Access::absent : Access::unreadable;
}

}  // namespace

// An absolute link of a mounted card means that card's root. The system's own walk would take this
// machine's, hence this one.
System_tree::Place System_tree::locate(const std::string& path, bool follow_last) const {
  std::vector<std::string> pending;
  push_parts(pending, path);
  fs::path inside;
  unsigned links = 0;
  while (!pending.empty()) {
    const auto part = std::move(pending.back());
    pending.pop_back();
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      inside = inside.parent_path();
      continue;
    }
    std::error_code error;
    const auto full = root_ / inside / part;
    const auto status = fs::symlink_status(full, error);
    if (status.type() == fs::file_type::not_found) return {Access::absent, {}};
    if (error) return {access_of(error), {}};
    if (!fs::is_symlink(status) || (pending.empty() && !follow_last)) {
      inside /= part;
      continue;
    }
    const auto target = fs::read_symlink(full, error);
    if (error || ++links > most_links) return {Access::unreadable, {}};
    if (target.is_absolute()) inside.clear();
    push_parts(pending, target);
  }
  return {Access::present, root_ / inside};
}

bool System_tree::has_file(const std::string& path) const {
  const auto place = locate(path, true);
  std::error_code error;
  return place.access == Access::present && fs::exists(place.path, error) &&
         !fs::is_directory(place.path, error);
}

Reading System_tree::read(const std::string& path) const {
  const auto place = locate(path, true);
  if (place.access != Access::present) return {place.access, {}};
  // The opening of a device can do something.
  std::error_code error;
  if (!fs::is_regular_file(fs::symlink_status(place.path, error))) return {Access::unreadable, {}};
  // Without O_NONBLOCK a pipe that has come into its place would hold us until somebody writes.
  const Descriptor file(
      ::open(place.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (file.number() < 0) return {access_of({errno, std::generic_category()}), {}};
  struct stat kind {};
  if (::fstat(file.number(), &kind) != 0 || !S_ISREG(kind.st_mode)) {
    return {Access::unreadable, {}};
  }
  // The files of proc and sysfs do not tell their length before they are read.
  Reading reading{Access::present, {}};
  std::array<char, 4096> block{};
  while (reading.text.size() < most_file_bytes) {
    const auto got = ::read(file.number(), block.data(), block.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {Access::unreadable, {}};
    if (got == 0) break;
    reading.text.append(block.data(), static_cast<std::size_t>(got));
  }
  return reading;
}

Listing System_tree::list(const std::string& path) const {
  const auto place = locate(path, true);
  if (place.access != Access::present) return {place.access, {}};
  std::error_code error;
  fs::directory_iterator entry(place.path, error);
  if (error) return {access_of(error), {}};
  Listing listing{Access::present, {}};
  for (; !error && entry != fs::directory_iterator() && listing.names.size() < most_entries;
       entry.increment(error)) {
    listing.names.push_back(entry->path().filename());
  }
  std::sort(listing.names.begin(), listing.names.end());
  return listing;
}

std::optional<std::string> System_tree::link_name(const std::string& path) const {
  const auto place = locate(path, false);
  if (place.access != Access::present) return std::nullopt;
  std::error_code error;
  const auto target = fs::read_symlink(place.path, error);
  if (error || !target.has_filename()) return std::nullopt;
  return target.filename();
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const auto end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

std::string_view trim(std::string_view text) {
  constexpr std::string_view blank(" \t\r\n\v\f\0", 7);
  const auto first = text.find_first_not_of(blank);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blank) - first + 1);
}

bool has_word(std::string_view text, std::string_view word) {
  const auto words = split(text, ' ');
  return std::find(words.begin(), words.end(), word) != words.end();
}

std::optional<std::uint64_t> leading_number(std::string_view text) {
  std::uint64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc()) return std::nullopt;
  return number;
}

std::string shown(std::string_view text) {
  return make_harmless(trim(trim(text).substr(0, most_shown_bytes)));
}

}  // namespace kestrelctl::doctor
