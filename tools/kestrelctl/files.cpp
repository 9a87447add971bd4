// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "kestrelctl/text.h"
#include "si468x/input_file.h"

namespace kestrelctl {
namespace {

namespace fs = std::filesystem;

bool write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const auto written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return fsync(descriptor) == 0;
}

}  // namespace

void refuse_file(const fs::path& path, std::string_view why) {
  throw std::runtime_error(fmt::format("{}: {}", make_harmless(path.string()), why));
}

std::optional<std::string> read_file(const fs::path& path, std::size_t most_bytes) {
  const Input_file file(std::fopen(path.c_str(), "rbe"));
  if (!file) return std::nullopt;
  // The files of proc and sysfs do not tell their length before they are read.
  std::string text;
  std::array<char, 65536> piece{};
  while (const auto count = std::fread(
             piece.data(), 1, std::min(piece.size(), most_bytes - text.size()), file.get())) {
    text.append(piece.data(), count);
  }
  if (std::ferror(file.get()) != 0) return std::nullopt;
  return text;
}

bool write_file_atomically(const fs::path& path, std::string_view text, If_present if_present) {
  constexpr mode_t mode = 0644;
  std::error_code error;
  const auto status = fs::symlink_status(path, error);
  if (fs::exists(status) && !fs::is_regular_file(status))
    refuse_file(path, "is not a regular file");
  const auto directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
  auto beside = (directory / ".kestrelctl-XXXXXX").string();
  const int descriptor = mkostemp(beside.data(), O_CLOEXEC);
  if (descriptor < 0) refuse_file(path, std::strerror(errno));
  int reason = write_all(descriptor, text) && fchmod(descriptor, mode) == 0 ? 0 : errno;
  if (close(descriptor) != 0 && reason == 0) reason = errno;
  const unsigned flags = if_present == If_present::keep ? RENAME_NOREPLACE : 0;
  if (reason == 0 && renameat2(AT_FDCWD, beside.c_str(), AT_FDCWD, path.c_str(), flags) != 0) {
    reason = errno;
  }
  if (reason == 0) {
    // A rename is on the disk when its directory is. Not every file system can be asked for that.
    const Input_file opened(std::fopen(directory.c_str(), "re"));
    if (opened) (void)fsync(fileno(opened.get()));
    return true;
  }
  (void)unlink(beside.c_str());
  if (reason == EEXIST) return false;
  refuse_file(path, std::strerror(reason));
}

void write_output(const std::string& name, std::string_view text, const std::vector<Scan>& scans) {
  if (name == "-") {
    std::cout << text;
    return;
  }
  for (const auto& scan : scans) {
    std::error_code error;
    if (fs::equivalent(name, scan.path, error)) {
      refuse_file(name, "is one of the scans, and is left alone");
    }
  }
  (void)write_file_atomically(name, text);
}

std::string host_name() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "radio";
}

}  // namespace kestrelctl
