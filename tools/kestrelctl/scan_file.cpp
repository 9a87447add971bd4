// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/scan_file.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>

#include "kestrelctl/files.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

namespace fs = std::filesystem;

// Twice what 48 lists have when each claims the most services.
constexpr std::size_t largest_file_bytes = std::size_t{16} << 20U;

// Blocks of band III; their distances are not regular.
struct Band_block {
  std::uint32_t khz;
  std::string_view name;
};
constexpr Band_block band_iii[]{
    {174928, "5A"},  {176640, "5B"},  {178352, "5C"},  {180064, "5D"},  {181936, "6A"},
    {183648, "6B"},  {185360, "6C"},  {187072, "6D"},  {188928, "7A"},  {190640, "7B"},
    {192352, "7C"},  {194064, "7D"},  {195936, "8A"},  {197648, "8B"},  {199360, "8C"},
    {201072, "8D"},  {202928, "9A"},  {204640, "9B"},  {206352, "9C"},  {208064, "9D"},
    {209936, "10A"}, {210096, "10N"}, {211648, "10B"}, {213360, "10C"}, {215072, "10D"},
    {216928, "11A"}, {217088, "11N"}, {218640, "11B"}, {220352, "11C"}, {222064, "11D"},
    {223936, "12A"}, {224096, "12N"}, {225648, "12B"}, {227360, "12C"}, {229072, "12D"},
    {230784, "13A"}, {232496, "13B"}, {234208, "13C"}, {235776, "13D"}, {237488, "13E"},
    {239200, "13F"}};

// ETSI TS 101 756, table 12: the international table.
constexpr std::string_view programme_types[]{
    // 0
    "None", "News", "Current affairs", "Information", "Sport", "Education", "Drama", "Arts",
    // 8
    "Science", "Talk", "Pop music", "Rock music", "Easy listening", "Light classical",
    "Classical music", "Other music",
    // 16
    "Weather", "Finance", "Children's", "Factual", "Religion", "Phone-in", "Travel", "Leisure",
    // 24
    "Jazz and blues", "Country music", "National music", "Oldies music", "Folk music",
    "Documentary", "Not used", "Not used"};
static_assert(std::size(programme_types) == 32);

// Where those of FM, IEC 62106, differ.
constexpr std::pair<unsigned, std::string_view> fm_programme_types[]{
    {7, "Culture"}, {9, "Varied"}, {19, "Social affairs"}, {30, "Alarm test"}, {31, "Alarm"}};

constexpr unsigned dab_plus = 63;

std::chrono::sys_seconds time_written(const fs::path& path) {
  std::error_code error;
  const auto written = fs::last_write_time(path, error);
  if (error) return {};
  return std::chrono::floor<std::chrono::seconds>(std::chrono::file_clock::to_sys(written));
}

}  // namespace

const Component* Service::main_component() const {
  const auto audio = std::ranges::find(components, 0U, &Component::transport);
  if (audio != components.end()) return &*audio;
  return components.empty() ? nullptr : &components.front();
}

std::string_view Service::kind() const {
  const auto* component = main_component();
  if (is_data || (component != nullptr && component->transport != 0)) return "data";
  return component != nullptr && component->type == dab_plus ? "DAB+" : "DAB";
}

bool Block::has_signal() const { return is_valid || is_acquired || !services.empty(); }

std::string block_name(std::uint32_t khz) {
  const auto* block = std::ranges::find(band_iii, khz, &Band_block::khz);
  return block == std::end(band_iii) ? "" : std::string(block->name);
}

Scan read_scan_file(const fs::path& path) {
  try {
    const auto text = read_file(path, largest_file_bytes + 1);
    if (!text) throw Unreadable(std::strerror(errno));
    if (text->size() > largest_file_bytes) {
      throw Unreadable("has more than 16 MiB, too much for a scan");
    }
    auto scan = read_scan_text(*text);
    scan.path = path;
    if (scan.time == std::chrono::sys_seconds{}) scan.time = time_written(path);
    return scan;
  } catch (const Unreadable& error) {
    throw Unreadable(fmt::format("{}: {}", make_harmless(path.string()), error.what()));
  }
}

std::vector<Scan> read_scans(const Paths& paths) {
  std::vector<Scan> scans;
  for (const auto& path : paths) {
    try {
      scans.push_back(read_scan_file(path));
    } catch (const Unreadable& error) {
      if (paths.size() == 1) throw;
      std::cerr << "kestrelctl: " << error.what() << '\n';
    }
  }
  if (scans.empty()) throw Unreadable("there is no scan that can be read");
  std::ranges::stable_sort(scans, {}, &Scan::time);
  return scans;
}

std::string format_utc(std::chrono::sys_seconds time) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", time);
}

std::string_view programme_type_name(unsigned type, bool is_fm) {
  if (is_fm) {
    for (const auto& [number, name] : fm_programme_types) {
      if (number == type) return name;
    }
  }
  return programme_types[std::min<std::size_t>(type, std::size(programme_types) - 1)];
}

}  // namespace kestrelctl
