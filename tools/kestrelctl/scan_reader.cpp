// SPDX-License-Identifier: GPL-3.0-or-later
//
// Reads the text of a scan as JSON, one ensemble at a time, and refuses a file with more than a
// receiver can have found. kestrel writes answers and labels as they came, so a quote, a backslash
// or a byte that is not UTF-8 can make its own file invalid: such strings are mended first.
#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "kestrelctl/scan_file.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using nlohmann::json;

constexpr std::size_t most_services = 255, most_components = 15;
constexpr std::size_t most_fm_stations = 256;
constexpr std::size_t longest_label = 16, longest_answer = 400;  // characters
constexpr std::size_t longest_string = 65536;                    // bytes, of any
// An entry with every component of every service has less: this bounds the memory.
constexpr std::size_t most_entry_bytes = 8U << 20U;
constexpr int most_levels = 12;

[[noreturn]] void refuse_more(std::string_view what, std::size_t limit) {
  throw Unreadable(fmt::format("has {} {}", what, limit));
}

// -- Mending -----------------------------------------------------------------

/// Appends `bytes` with each one that JSON or UTF-8 could stumble over as the code point 0x100
/// above it; the backslash that kestrel puts before a quote in a label is left out.
void append_mended(std::string& text, std::string_view bytes, bool is_label) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (is_label && bytes.substr(i, 2) == "\\\"") ++i;
    const auto byte = static_cast<unsigned char>(bytes[i]);
    const bool is_plain = byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
    const char32_t widened = 0x100U + byte;
    text += is_plain ? std::string(1, bytes[i]) : encode_utf8({&widened, 1});
  }
}

/// The bytes of which append_mended() made `text`.
std::string original_bytes(std::string_view text) {
  std::string bytes;
  for (const char32_t code_point : decode_utf8(text)) bytes += static_cast<char>(code_point);
  return bytes;
}

/// kestrel's own document with its answers and labels mended. An answer is on a line of its own,
/// whose last quote ends it; a label, which may hold a line end, ends before the line of its
/// components.
std::string mend(std::string_view text) {
  constexpr std::string_view after_label = "\",\n\"ComponentList\"";
  constexpr std::size_t label_window = 2 * longest_label + after_label.size();
  std::string mended;
  mended.reserve(2 * text.size());
  while (!text.empty()) {
    const auto line = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
    const auto before = line.substr(0, line.find("\": \""));
    const auto key = before.substr(before.starts_with('"') ? 1 : before.size());
    const auto begin = before.size() + 4;
    const bool is_label = key == "Label";
    auto end = std::string_view::npos;
    if (is_label) {
      end = text.substr(0, begin + label_window).find(after_label, begin);
    } else if (std::ranges::find(location_questions, key, &Location_question::key) !=
               location_questions.end()) {
      end = line.rfind('"');
    }
    if (end == std::string_view::npos || end < begin) {
      mended += line;
      text.remove_prefix(line.size());
    } else {
      mended += text.substr(0, begin);
      append_mended(mended, text.substr(begin, end - begin), is_label);
      text.remove_prefix(end);
    }
  }
  return mended;
}

// -- JSON values -------------------------------------------------------------

const json& member(const json& object, std::string_view key) {
  static const json nothing;
  const auto found = object.find(key);
  return found == object.end() ? nothing : *found;
}

constexpr std::uint32_t any_number = 0xFFFFFFFF, any_word = 0xFFFF;
/// 0 for what is not a number up to `largest`.
std::uint32_t number(const json& object, std::string_view key, std::uint32_t largest = 0xFF) {
  const auto& value = member(object, key);
  return value.is_number_unsigned() && value <= largest ? value.get<std::uint32_t>() : 0;
}
/// The chip's signed byte, which kestrel shows unsigned.
int level(const json& object, std::string_view key) {
  const auto& value = member(object, key);
  const bool is_byte = value.is_number_integer() && value >= -128 && value <= 0xFF;
  return is_byte ? static_cast<std::int8_t>(value.get<int>()) : 0;
}

/// The bytes of a string, in whatever character set; none for another value.
std::string string_bytes(const json& object, std::string_view key, std::size_t most) {
  const auto& value = member(object, key);
  if (!value.is_string()) return {};
  auto bytes = value.get<std::string>();
  const auto length = decode_utf8(bytes).size();
  if (length > most) refuse_more(fmt::format("a text of {} characters, more than", length), most);
  return bytes;
}

/// The objects of a list, made into records.
template <class Make>
auto make_list(const json& list, std::size_t most, std::string_view what, Make make) {
  std::vector<decltype(make(list))> records;
  for (const auto& element : list) {
    if (!element.is_object()) continue;
    if (records.size() == most) refuse_more(fmt::format("more {} than", what), most);
    records.push_back(make(element));
  }
  return records;
}

/// Nothing for a time that cannot be right.
std::optional<std::chrono::sys_seconds> ensemble_time(const json& time) {
  using namespace std::chrono;
  const auto y = number(time, "year", any_word);
  const auto hour = number(time, "hour");
  const auto minute = number(time, "minute");
  const auto second = number(time, "second");
  const year_month_day date(year(static_cast<int>(y)), month(number(time, "month")),
                            day(number(time, "day")));
  if (!date.ok() || y < 1995 || y > 9999 || hour > 23 || minute > 59 || second > 60) return {};
  return sys_days(date) + hours(hour) + minutes(minute) + seconds(second);
}

/// "2024-03-05T09:47:44Z"; 0 for what is not such a time.
std::chrono::sys_seconds parse_utc(const std::string& text) {
  std::tm time{};
  std::istringstream in(text);
  const bool is_time = bool(in >> std::get_time(&time, "%Y-%m-%dT%H:%M:%SZ"));
  return std::chrono::sys_seconds(std::chrono::seconds(is_time ? timegm(&time) : 0));
}

// -- Records -----------------------------------------------------------------

Component make_component(const json& component) {
  return {.id = number(component, "comp_ID", any_number),
          .transport = number(component, "TMID"),
          .type = number(component, "ASCTyDSCTy"),
          .is_scrambled = number(component, "CA_flag") != 0};
}

Service make_service(const json& service) {
  return {.name = decode_label(string_bytes(service, "Label", longest_label),
                               number(service, "SICharset")),
          .id = number(service, "ServId", any_number),
          .is_data = number(service, "AudioOrDataFlag") != 0,
          .has_conditional_access = number(service, "CAId") != 0,
          .programme_type = number(service, "ProgramType"),
          .components = make_list(member(service, "ComponentList"), most_components,
                                  "components in a service", make_component)};
}

Block make_block(const json& entry) {
  const auto& status = member(entry, "DigradStatus");
  const auto& list = member(member(entry, "DigitalServiceList"), "ServiceList");
  return {.index = number(entry, "EnsemleNo"),
          .khz = number(status, "tune_freq", any_number),
          .rssi_dbuv = level(status, "rssi"),
          .snr_db = level(status, "snr"),
          .cnr_db = number(status, "cnr"),
          .fic_quality = number(status, "FIC_quality"),
          .is_valid = number(status, "valid") != 0,
          .is_acquired = number(status, "acq") != 0,
          .services = make_list(list, most_services, "services in an entry", make_service)};
}

Fm_station make_fm_station(const json& station) {
  return {.khz = number(station, "frequency_khz", any_number),
          .pi = static_cast<std::uint16_t>(number(station, "PI", any_word)),
          .ps = make_harmless(string_bytes(station, "PS", longest_label)),
          .programme_type = number(station, "PTY"),
          .rssi_dbuv = level(station, "rssi"),
          .snr_db = level(station, "snr")};
}

/// Throws what is wrong with `text` at `position`.
[[noreturn]] void refuse_syntax(std::string_view text, std::size_t position) {
  if (position > text.size()) {
    throw Unreadable("is empty or ends too early: the scan did not finish");
  }
  constexpr std::size_t shown = 40;
  const auto at = position == 0 ? 0 : position - 1;
  const auto rest = text.substr(at, std::min(shown, text.find('\n', at) - at));
  throw Unreadable(fmt::format("line {}: cannot be read from '{}' on",
                               1 + std::ranges::count(text.substr(0, at), '\n'),
                               make_harmless(rest)));
}

/// Of a string that never ends the library would make copies.
void check_strings(std::string_view text) {
  for (std::size_t i = 0, begin = 0; i < text.size(); ++i) {
    if (text[i] == '"' && (i == 0 || text[i - 1] != '\\')) begin = i + 1;
    if (i >= begin + longest_string) throw Unreadable("is not a scan file");
  }
}

using Times = std::vector<std::chrono::sys_seconds>;

/// Makes an entry of `list`, a member of the document, into a record of `scan`; `times` are those
/// that the ensembles transmit.
void add_entry(Scan& scan, Times& times, std::string_view list, const json& entry) {
  if (list == "ensembleList") {
    if (scan.blocks.size() == longest_frequency_list)
      refuse_more("more entries than", longest_frequency_list);
    scan.blocks.push_back(make_block(entry));
    if (const auto time = ensemble_time(member(entry, "ensembleTime"))) times.push_back(*time);
  } else if (list == "fmStations") {
    if (scan.fm_stations.size() == most_fm_stations) {
      refuse_more("more FM stations than", most_fm_stations);
    }
    scan.fm_stations.push_back(make_fm_station(entry));
  }
}

Scan read_document(std::string_view text, bool is_mended) {
  check_strings(text);
  Scan scan;
  Times times;
  std::string list;  // the member of the document that is being read
  std::size_t bytes = 0;
  // Each entry is made into a record at its end, and dropped.
  const auto take = [&](int depth, json::parse_event_t event, json& value) {
    if (depth >= most_levels) refuse_more("more levels than", most_levels);
    constexpr std::size_t value_bytes = 64;
    bytes += value_bytes + (value.is_string() ? value.get_ref<const std::string&>().size() : 0);
    if (bytes > most_entry_bytes) throw Unreadable("has more in an entry than a scan can have");
    if (is_mended && value.is_string()) value = original_bytes(value.get<std::string>());
    if (depth == 1 && event == json::parse_event_t::key) list = value.get<std::string>();
    if (depth != 2 || event != json::parse_event_t::object_end) return true;
    bytes = 0;
    add_entry(scan, times, list, value);
    return false;
  };
  json document;
  try {
    document = json::parse(text, take);
  } catch (const json::parse_error& error) {
    refuse_syntax(text, error.byte);
  } catch (const json::exception&) {
    throw Unreadable("has a number that is too large");
  }
  scan.is_fm = member(document, "fmStations").is_array();
  if (!scan.is_fm && !member(document, "ensembleList").is_array()) {
    throw Unreadable("is not a scan file: it has no list of ensembles");
  }
  const auto& location = member(document, "Location");
  for (std::size_t i = 0; i < location_questions.size(); ++i) {
    scan.location.at(i) =
        make_harmless(string_bytes(location, location_questions.at(i).key, longest_answer));
  }
  // A single ensemble's clock may be wrong.
  std::ranges::sort(times);
  if (!times.empty()) scan.time = times[times.size() / 2];
  if (scan.is_fm) scan.time = parse_utc(string_bytes(document, "time", longest_answer));
  return scan;
}

}  // namespace

Scan read_scan_text(std::string_view text) {
  const bool is_own = text.starts_with("{\"content\": \"FullStationScan\",\n");
  return is_own ? read_document(mend(text), true) : read_document(text, false);
}

std::string write_fm_scan(const std::vector<Fm_station>& stations, std::chrono::sys_seconds time) {
  nlohmann::ordered_json document{
      {"content", "FmScan"}, {"time", format_utc(time)}, {"fmStations", json::array()}};
  for (const auto& station : stations) {
    document["fmStations"].push_back({{"frequency_khz", station.khz},
                                      {"PI", station.pi},
                                      {"PS", station.ps},
                                      {"PTY", station.programme_type},
                                      {"rssi", station.rssi_dbuv},
                                      {"snr", station.snr_db}});
  }
  return document.dump(1, ' ', false, json::error_handler_t::replace) + '\n';
}

}  // namespace kestrelctl
