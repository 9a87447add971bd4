// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/scan_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <system_error>

#include "kestrelctl/scan_text.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

// Twice what 48 lists have when each claims the most services.
constexpr std::size_t largest_file_bytes = std::size_t{16} << 20U;

// Blocks of band III; their distances are not regular.
struct Band_block {
  std::uint32_t khz;
  std::string_view name;
};
constexpr std::array band_iii{
    Band_block{174928, "5A"},  Band_block{176640, "5B"},  Band_block{178352, "5C"},
    Band_block{180064, "5D"},  Band_block{181936, "6A"},  Band_block{183648, "6B"},
    Band_block{185360, "6C"},  Band_block{187072, "6D"},  Band_block{188928, "7A"},
    Band_block{190640, "7B"},  Band_block{192352, "7C"},  Band_block{194064, "7D"},
    Band_block{195936, "8A"},  Band_block{197648, "8B"},  Band_block{199360, "8C"},
    Band_block{201072, "8D"},  Band_block{202928, "9A"},  Band_block{204640, "9B"},
    Band_block{206352, "9C"},  Band_block{208064, "9D"},  Band_block{209936, "10A"},
    Band_block{210096, "10N"}, Band_block{211648, "10B"}, Band_block{213360, "10C"},
    Band_block{215072, "10D"}, Band_block{216928, "11A"}, Band_block{217088, "11N"},
    Band_block{218640, "11B"}, Band_block{220352, "11C"}, Band_block{222064, "11D"},
    Band_block{223936, "12A"}, Band_block{224096, "12N"}, Band_block{225648, "12B"},
    Band_block{227360, "12C"}, Band_block{229072, "12D"}, Band_block{230784, "13A"},
    Band_block{232496, "13B"}, Band_block{234208, "13C"}, Band_block{235776, "13D"},
    Band_block{237488, "13E"}, Band_block{239200, "13F"}};

// ETSI TS 101 756, table 12: the international table.
constexpr auto programme_types = std::to_array<std::string_view>({"None",
                                                                  "News",
                                                                  "Current affairs",
                                                                  "Information",
                                                                  "Sport",
                                                                  "Education",
                                                                  "Drama",
                                                                  "Arts",
                                                                  "Science",
                                                                  "Talk",
                                                                  "Pop music",
                                                                  "Rock music",
                                                                  "Easy listening",
                                                                  "Light classical",
                                                                  "Classical music",
                                                                  "Other music",
                                                                  "Weather",
                                                                  "Finance",
                                                                  "Children's",
                                                                  "Factual",
                                                                  "Religion",
                                                                  "Phone-in",
                                                                  "Travel",
                                                                  "Leisure",
                                                                  "Jazz and blues",
                                                                  "Country music",
                                                                  "National music",
                                                                  "Oldies music",
                                                                  "Folk music",
                                                                  "Documentary",
                                                                  "Not used",
                                                                  "Not used"});
static_assert(programme_types.size() == 32);

constexpr unsigned dab_plus = 63;

struct Answer {
  const char* key;
  const char* name;
};
constexpr std::array answers{
    Answer{"Street", "Street"},          Answer{"StreetNo", "Street number"},
    Answer{"PostalCode", "Postal code"}, Answer{"City", "City"},
    Answer{"Country", "Country"},        Answer{"Floor", "Floor"},
    Answer{"gps_latitude", "Latitude"},  Answer{"gps_longitude", "Longitude"}};

/// The member of an object; null without it.
const json& at(const json& object, const char* key) {
  static const json nothing;
  if (!object.is_object()) return nothing;
  const auto member = object.find(key);
  return member == object.end() ? nothing : *member;
}

/// A number that fits; 0 for everything else.
template <class Number = unsigned>
Number number(const json& object, const char* key) {
  const auto& value = at(object, key);
  if (!value.is_number_unsigned()) return 0;
  const auto wide = value.get<std::uint64_t>();
  return wide > std::numeric_limits<Number>::max() ? Number{0} : static_cast<Number>(wide);
}

/// The chip's signed byte, which kestrel shows unsigned.
int signed_byte(const json& object, const char* key) {
  return static_cast<std::int8_t>(number<std::uint8_t>(object, key));
}

std::string_view text(const json& object, const char* key) {
  const auto& value = at(object, key);
  return value.is_string() ? std::string_view(value.get_ref<const std::string&>()) : "";
}

Service read_service(const json& entry) {
  Service service;
  service.name = decode_label(text(entry, "Label"), number(entry, "SICharset"));
  service.id = number(entry, "ServId");
  service.is_data = number(entry, "AudioOrDataFlag") != 0;
  service.programme_type = number(entry, "ProgramType");
  for (const auto& component : at(entry, "ComponentList")) {
    service.components.push_back({.id = number(component, "comp_ID"),
                                  .transport = number(component, "TMID"),
                                  .type = number(component, "ASCTyDSCTy")});
  }
  return service;
}

Block read_block(const json& entry) {
  const auto& status = at(entry, "DigradStatus");
  Block block{.index = number(entry, "EnsemleNo"),
              .khz = number(status, "tune_freq"),
              .rssi_dbuv = signed_byte(status, "rssi"),
              .snr_db = signed_byte(status, "snr"),
              .cnr_db = number<std::uint8_t>(status, "cnr"),
              .fic_quality = number<std::uint8_t>(status, "FIC_quality"),
              .is_valid = number(status, "valid") != 0,
              .is_acquired = number(status, "acq") != 0,
              .services = {}};
  const auto& list = at(entry, "DigitalServiceList");
  for (const auto& service : at(list, "ServiceList")) {
    block.services.push_back(read_service(service));
  }
  return block;
}

/// The ensemble's time, if there is one that can be right.
std::optional<std::chrono::sys_seconds> read_time(const json& entry) {
  using namespace std::chrono;
  const auto& time = at(entry, "ensembleTime");
  constexpr int last_year = 9999;  // with four digits
  const year_month_day date{year(std::min<int>(number<std::uint16_t>(time, "year"), last_year + 1)),
                            month(number<std::uint8_t>(time, "month")),
                            day(number<std::uint8_t>(time, "day"))};
  const auto hour = number(time, "hour");
  const auto minute = number(time, "minute");
  const auto second = number(time, "second");
  if (!date.ok() || date.year() < year(1995) || date.year() > year(last_year) || hour > 23 ||
      minute > 59 || second > 60)
    return {};
  return sys_days(date) + hours(hour) + minutes(minute) + seconds(second);
}

[[noreturn]] void refuse(const fs::path& path, const std::string& why) {
  throw Unreadable(make_harmless(path.string()) + ": " + why);
}

std::string read_text(const fs::path& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) refuse(path, "is a directory");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) refuse(path, std::strerror(errno));
  std::string text;
  std::vector<char> piece(65536);
  while (file) {
    file.read(piece.data(), std::ssize(piece));
    text.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    if (text.size() > largest_file_bytes) refuse(path, "is too large for a scan file");
  }
  if (file.bad()) refuse(path, "cannot be read");
  return text;
}

std::chrono::sys_seconds time_written(const fs::path& path) {
  std::error_code error;
  const auto written = fs::last_write_time(path, error);
  if (error) return {};
  return std::chrono::floor<std::chrono::seconds>(std::chrono::file_clock::to_sys(written));
}

fs::path find_newest() {
  fs::path newest;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(".", error)) {
    const auto name = entry.path().filename().string();
    const bool is_scan = name.starts_with("ensemblescan_") && name.ends_with(".json");
    if (!is_scan || !entry.is_regular_file(error)) continue;
    if (newest.empty() || time_written(entry.path()) > time_written(newest)) {
      newest = entry.path().filename();
    }
  }
  if (newest.empty()) {
    throw Unreadable(
        "there is no ensemblescan_*.json here: name a scan file, or make one with "
        "sudo kestrel -u");
  }
  return newest;
}

void report_repairs(const Scan& scan) {
  if (scan.repairs.empty()) return;
  std::cerr << "kestrelctl: " << scan.file << ": is not valid JSON; read all the same, with "
            << scan.repairs.size() << (scan.repairs.size() == 1 ? " string" : " strings")
            << " mended:";
  constexpr std::size_t shown = 3;
  for (std::size_t i = 0; i < std::min(shown, scan.repairs.size()); ++i) {
    const auto& repair = scan.repairs[i];
    std::cerr << (i == 0 ? " " : ", ") << repair.reason << " in " << repair.member << " (line "
              << repair.line << ')';
  }
  std::cerr << (scan.repairs.size() > shown ? ", ...\n" : "\n");
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

std::string Block::name() const {
  const auto* block = std::ranges::find(band_iii, khz, &Band_block::khz);
  return block == band_iii.end() ? "" : std::string(block->name);
}

Scan read_scan_text(std::string_view text_of_file) {
  auto document = parse_scan_text(text_of_file);
  Scan scan;
  const auto& entries = at(document.json, "ensembleList");
  if (!entries.is_array()) throw Unreadable("is no scan file: it has no array \"ensembleList\"");
  std::vector<std::chrono::sys_seconds> times;
  for (const auto& entry : entries) {
    scan.blocks.push_back(read_block(entry));
    if (const auto time = read_time(entry)) times.push_back(*time);
  }
  // A single ensemble's clock may be wrong.
  std::ranges::sort(times);
  if (!times.empty()) scan.time = times[times.size() / 2];
  const auto& location = at(document.json, "Location");
  for (const auto& answer : answers) {
    auto given = make_harmless(text(location, answer.key));
    if (!given.empty()) scan.location.emplace_back(answer.name, std::move(given));
  }
  scan.repairs = std::move(document.repairs);
  return scan;
}

Scan read_scan_file(const fs::path& path) {
  const auto bytes = read_text(path);
  try {
    auto scan = read_scan_text(bytes);
    scan.path = path;
    scan.file = make_harmless(path.string());
    if (scan.time == std::chrono::sys_seconds{}) scan.time = time_written(path);
    return scan;
  } catch (const Unreadable& error) {
    refuse(path, error.what());
  }
}

std::vector<Scan> read_scans(const std::vector<fs::path>& paths) {
  std::vector<Scan> scans;
  if (paths.empty()) scans.push_back(read_scan_file(find_newest()));
  for (const auto& path : paths) scans.push_back(read_scan_file(path));
  for (const auto& scan : scans) report_repairs(scan);
  std::ranges::stable_sort(scans, {}, &Scan::time);
  return scans;
}

std::string format_utc(std::chrono::sys_seconds time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::array<char, 32> text{};
  const int size = std::snprintf(
      text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()));
  return {text.data(), static_cast<std::size_t>(std::max(size, 0))};
}

std::string_view programme_type_name(unsigned type) {
  return programme_types[std::min<std::size_t>(type, programme_types.size() - 1)];
}

}  // namespace kestrelctl
