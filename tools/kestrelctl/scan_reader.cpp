// SPDX-License-Identifier: GPL-3.0-or-later
//
// Reads the text of a scan as JSON, event by event: nothing is kept but the records, and a file
// with more than a receiver can have found is refused where it says so. kestrel writes answers and
// labels as they came, so a quote, a backslash or a byte that is not UTF-8 can make its own file
// invalid: such strings are put into a valid form first.
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>

#include "kestrelctl/scan_file.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using nlohmann::json;

constexpr std::size_t most_entries = 48, most_services = 255, most_components = 15;
constexpr std::size_t most_fm_stations = 256, most_levels = 12;
constexpr std::size_t longest_label = 16, longest_answer = 400;  // characters
constexpr std::size_t longest_string = 65536;                    // bytes, of any

/// The parts of a scan that hold something of interest.
enum class Place {
  elsewhere,
  document,
  location,
  entries,
  entry,
  status,
  list,
  services,
  service,
  components,
  component,
  time,
  fm_stations,
  fm_station
};
struct Way {
  Place from, to;
  std::string_view key;  ///< empty: the elements of an array
};
constexpr Way ways[]{{Place::document, Place::location, "Location"},
                     {Place::document, Place::entries, "ensembleList"},
                     {Place::entries, Place::entry, ""},
                     {Place::entry, Place::status, "DigradStatus"},
                     {Place::entry, Place::time, "ensembleTime"},
                     {Place::entry, Place::list, "DigitalServiceList"},
                     {Place::list, Place::services, "ServiceList"},
                     {Place::services, Place::service, ""},
                     {Place::service, Place::components, "ComponentList"},
                     {Place::components, Place::component, ""},
                     {Place::document, Place::fm_stations, "fmStations"},
                     {Place::fm_stations, Place::fm_station, ""}};

/// What is being read: the records so far, the last of which are not complete.
struct Reading {
  Scan scan;
  std::string label;
  unsigned charset = 0;
  std::array<unsigned, 6> time{};  ///< year to second
  std::vector<std::chrono::sys_seconds> times;

  Block& block() { return scan.blocks.back(); }
  Service& service() { return block().services.back(); }
  Component& component() { return service().components.back(); }
  Fm_station& fm() { return scan.fm_stations.back(); }
};

struct Number_member {
  Place place;
  std::uint32_t largest;
  std::string_view key;
  void (*store)(Reading&, std::uint32_t);
};
constexpr std::uint32_t any = 0xFFFFFFFF, word = 0xFFFF, byte = 0xFF;
/// The chip's signed byte, which kestrel shows unsigned.
constexpr int as_signed(std::uint32_t number) { return static_cast<std::int8_t>(number); }
constexpr Number_member number_members[]{
    {Place::entry, byte, "EnsemleNo", [](Reading& r, auto n) { r.block().index = n; }},
    {Place::status, any, "tune_freq", [](Reading& r, auto n) { r.block().khz = n; }},
    {Place::status, byte, "rssi", [](Reading& r, auto n) { r.block().rssi_dbuv = as_signed(n); }},
    {Place::status, byte, "snr", [](Reading& r, auto n) { r.block().snr_db = as_signed(n); }},
    {Place::status, byte, "cnr", [](Reading& r, auto n) { r.block().cnr_db = n; }},
    {Place::status, byte, "FIC_quality", [](Reading& r, auto n) { r.block().fic_quality = n; }},
    {Place::status, byte, "valid", [](Reading& r, auto n) { r.block().is_valid = n != 0; }},
    {Place::status, byte, "acq", [](Reading& r, auto n) { r.block().is_acquired = n != 0; }},
    {Place::service, any, "ServId", [](Reading& r, auto n) { r.service().id = n; }},
    {Place::service, byte, "AudioOrDataFlag",
     [](Reading& r, auto n) { r.service().is_data = n != 0; }},
    {Place::service, byte, "ProgramType",
     [](Reading& r, auto n) { r.service().programme_type = n; }},
    {Place::service, byte, "CAId",
     [](Reading& r, auto n) { r.service().has_conditional_access = n != 0; }},
    {Place::service, byte, "SICharset", [](Reading& r, auto n) { r.charset = n; }},
    {Place::component, any, "comp_ID", [](Reading& r, auto n) { r.component().id = n; }},
    {Place::component, byte, "TMID", [](Reading& r, auto n) { r.component().transport = n; }},
    {Place::component, byte, "ASCTyDSCTy", [](Reading& r, auto n) { r.component().type = n; }},
    {Place::component, byte, "CA_flag",
     [](Reading& r, auto n) { r.component().is_scrambled = n != 0; }},
    {Place::time, word, "year", [](Reading& r, auto n) { r.time[0] = n; }},
    {Place::time, byte, "month", [](Reading& r, auto n) { r.time[1] = n; }},
    {Place::time, byte, "day", [](Reading& r, auto n) { r.time[2] = n; }},
    {Place::time, byte, "hour", [](Reading& r, auto n) { r.time[3] = n; }},
    {Place::time, byte, "minute", [](Reading& r, auto n) { r.time[4] = n; }},
    {Place::time, byte, "second", [](Reading& r, auto n) { r.time[5] = n; }},
    {Place::fm_station, any, "frequency_khz", [](Reading& r, auto n) { r.fm().khz = n; }},
    {Place::fm_station, word, "PI",
     [](Reading& r, auto n) { r.fm().pi = static_cast<std::uint16_t>(n); }},
    {Place::fm_station, byte, "PTY", [](Reading& r, auto n) { r.fm().programme_type = n; }},
    {Place::fm_station, byte, "rssi", [](Reading& r, auto n) { r.fm().rssi_dbuv = as_signed(n); }},
    {Place::fm_station, byte, "snr", [](Reading& r, auto n) { r.fm().snr_db = as_signed(n); }}};

/// Nothing for a time that cannot be right.
std::optional<std::chrono::sys_seconds> make_time(const std::array<unsigned, 6>& parts) {
  using namespace std::chrono;
  const auto [y, m, d, hour, minute, second] = parts;
  const year_month_day date(year(static_cast<int>(std::min(y, 10000U))), month(m), day(d));
  if (!date.ok() || y < 1995 || y > 9999 || hour > 23 || minute > 59 || second > 60) return {};
  return sys_days(date) + hours(hour) + minutes(minute) + seconds(second);
}

/// "2024-03-05T09:47:44Z"
std::optional<std::chrono::sys_seconds> parse_utc(std::string_view text) {
  std::array<unsigned, 6> parts{};
  const auto* at = text.data();
  for (auto& part : parts) {
    const auto [end, error] = std::from_chars(at, text.data() + text.size(), part);
    if (error != std::errc{}) return {};
    at = std::min(end + 1, text.data() + text.size());
  }
  return make_time(parts);
}

const Location_question* find_question(std::string_view key) {
  return std::ranges::find(location_questions, key, &Location_question::key);
}

// In the valid form of kestrel's own strings, a byte that JSON or UTF-8 could stumble over is the
// code point of its number above this one, which takes two bytes.
constexpr unsigned char widened_lead = 0xC4;  // of U+0100

void append_widened(std::string& text, std::string_view bytes) {
  for (const char c : bytes) {
    const auto value = static_cast<unsigned char>(c);
    if (value >= 0x20 && value < 0x7F && c != '"' && c != '\\') {
      text += c;
    } else {
      text += static_cast<char>(widened_lead | value >> 6U);
      text += static_cast<char>(0x80 | (value & 0x3FU));
    }
  }
}

std::string narrow(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto lead = static_cast<unsigned>(static_cast<unsigned char>(text[i])) ^ widened_lead;
    if (lead > 3 || i + 1 == text.size()) {
      bytes += text[i];
    } else {
      bytes += static_cast<char>(lead << 6U | (static_cast<unsigned char>(text[++i]) & 0x3FU));
    }
  }
  return bytes;
}

bool is_answer_key(std::string_view quoted) {
  return quoted.size() > 1 && quoted.starts_with('"') && quoted.ends_with('"') &&
         find_question(quoted.substr(1, quoted.size() - 2)) != location_questions.end();
}

/// `text` with each string that kestrel writes as it came in the valid form. An answer is on a line
/// of its own, whose last quote ends it; a label ends before the line of its components.
std::string widen_own_strings(std::string_view text) {
  constexpr std::string_view after_label = "\"ComponentList\"";
  constexpr std::size_t label_window = 2 * longest_label + 8 + after_label.size();
  std::string valid;
  valid.reserve(text.size() + static_cast<std::size_t>(std::ranges::count_if(text, [](char c) {
                  return c < 0x20 || c == 0x7F || c == '"' || c == '\\';
                })));
  while (!text.empty()) {
    auto line = text.substr(0, text.find('\n'));
    const auto key = line.substr(0, line.find(": \""));
    const bool is_label = key == "\"Label\"";
    if (is_label || is_answer_key(key)) {
      const auto begin = key.size() + 3;
      if (is_label) {
        const auto window = text.substr(0, begin + label_window);
        line = window.substr(0, window.find(after_label, begin));
      }
      const auto end = line.rfind('"');
      if (end != std::string_view::npos && end >= begin && end - begin <= longest_string) {
        auto bytes = std::string(line.substr(begin, end - begin));
        for (auto at = bytes.find("\\\""); is_label && at != std::string::npos;
             at = bytes.find("\\\"", at + 1)) {
          bytes.erase(at, 1);
        }
        valid += line.substr(0, begin);
        append_widened(valid, bytes);
        text.remove_prefix(end);
        line = text.substr(0, text.find('\n'));
      }
    }
    const auto length = std::min(line.size() + 1, text.size());
    valid += text.substr(0, length);
    text.remove_prefix(length);
  }
  return valid;
}

class Reader : public nlohmann::json_sax<json> {
 public:
  Reader(std::string_view text, bool is_widened) : text_(text), is_widened_(is_widened) {}

  /// Throws Unreadable.
  Scan read() {
    // Of a string that never ends the library would make copies.
    for (std::size_t i = 0, begin = 0; i < text_.size(); ++i) {
      if (text_[i] == '"' && (i == 0 || text_[i - 1] != '\\')) begin = i + 1;
      if (i >= begin + longest_string) {
        throw Unreadable(at_line(begin, "is not a scan file"));
      }
    }
    if (!json::sax_parse(text_, this)) throw Unreadable(error_);
    if (!has_list_) throw Unreadable("is not a scan file: it has no list of ensembles");
    // A single ensemble's clock may be wrong.
    auto& times = reading_.times;
    std::ranges::sort(times);
    if (!times.empty()) reading_.scan.time = times[times.size() / 2];
    return std::move(reading_.scan);
  }

  bool start_object(std::size_t /*elements*/) override { return enter(false); }
  bool start_array(std::size_t /*elements*/) override { return enter(true); }
  bool end_object() override {
    if (places_.back() == Place::service) {
      reading_.service().name = decode_label(reading_.label, reading_.charset);
    } else if (places_.back() == Place::time) {
      if (const auto time = make_time(reading_.time)) reading_.times.push_back(*time);
    }
    return end_array();
  }
  bool end_array() override {
    places_.pop_back();
    return true;
  }
  bool key(std::string& name) override {
    key_ = name;
    return true;
  }
  bool number_unsigned(std::uint64_t number) override {
    for (const auto& member : number_members) {
      if (member.place != place() || member.key != key_ || number > member.largest) continue;
      member.store(reading_, static_cast<std::uint32_t>(number));
    }
    return true;
  }
  bool number_integer(std::int64_t number) override {
    return place() != Place::fm_station || number < -128 ||
           number_unsigned(static_cast<std::uint8_t>(number));
  }
  bool string(std::string& text) override {
    const bool is_label = place() == Place::service && key_ == "Label";
    const bool is_ps = place() == Place::fm_station && key_ == "PS";
    auto* answer = find_answer();
    if (is_widened_ && (is_label || answer != nullptr)) text = narrow(text);
    const auto most = is_label || is_ps ? longest_label : longest_answer;
    if ((is_label || is_ps || answer != nullptr) && decode_utf8(text).size() > most) {
      return refuse(
          "a text of " + std::to_string(decode_utf8(text).size()) + " characters, more than", most);
    }
    if (is_label) reading_.label = text;
    if (is_ps) reading_.fm().ps = make_harmless(text);
    if (answer != nullptr) *answer = make_harmless(text);
    if (place() == Place::document && key_ == "time") {
      if (const auto time = parse_utc(text)) reading_.times.push_back(*time);
    }
    return true;
  }
  bool null() override { return true; }
  bool boolean(bool /*value*/) override { return true; }
  bool number_float(double /*number*/, const std::string& /*text*/) override { return true; }
  bool binary(json::binary_t& /*bytes*/) override { return true; }
  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const json::exception& /*error*/) override {
    if (position > text_.size()) {
      error_ = "is empty or ends too early: the scan did not finish";
      return false;
    }
    constexpr std::size_t shown = 40;
    const auto at = position == 0 ? 0 : position - 1;
    const auto rest = text_.substr(at, std::min(shown, text_.find('\n', at) - at));
    error_ = at_line(at, fmt::format("cannot be read from '{}' on", make_harmless(rest)));
    return false;
  }

 private:
  [[nodiscard]] Place place() const { return places_.empty() ? Place::elsewhere : places_.back(); }

  /// Refuses what has more parts than a scan can have.
  bool refuse(std::string_view what, std::size_t limit) {
    error_ = fmt::format("has {} {}", what, limit);
    return false;
  }

  bool enter(bool is_array) {
    if (places_.size() == most_levels) return refuse("more levels than", most_levels);
    const auto* way = std::ranges::find_if(
        ways, [&](const Way& w) { return w.from == place() && (w.key.empty() || w.key == key_); });
    auto to = way == std::end(ways) ? Place::elsewhere : way->to;
    const auto is_list = [](Place p) {
      return p == Place::entries || p == Place::services || p == Place::components ||
             p == Place::fm_stations;
    };
    if (is_list(to) != is_array) to = Place::elsewhere;
    if (places_.empty() && !is_array) to = Place::document;
    places_.push_back(to);
    auto& [scan, label, charset, time, times] = reading_;
    const auto add = [this](auto& list, std::size_t most, std::string_view what) {
      if (list.size() == most) return refuse(fmt::format("more {} than", what), most);
      list.emplace_back();
      return true;
    };
    switch (to) {
      case Place::entry:
        return add(scan.blocks, most_entries, "entries");
      case Place::service:
        label.clear();
        charset = 0;
        return add(reading_.block().services, most_services, "services in an entry");
      case Place::component:
        return add(reading_.service().components, most_components, "components in a service");
      case Place::fm_station:
        return add(scan.fm_stations, most_fm_stations, "FM stations");
      case Place::time:
        time = {};
        break;
      case Place::fm_stations:
        scan.is_fm = true;
        [[fallthrough]];
      case Place::entries:
        has_list_ = true;
        break;
      default:
        break;
    }
    return true;
  }

  std::string* find_answer() {
    if (place() != Place::location) return nullptr;
    const auto* question = find_question(key_);
    if (question == location_questions.end()) return nullptr;
    return &reading_.scan.location[static_cast<std::size_t>(question - location_questions.begin())];
  }

  [[nodiscard]] std::string at_line(std::size_t position, std::string_view what) const {
    std::string_view before = text_;
    before = before.substr(0, position);
    auto line = 1 + std::ranges::count(before, '\n');
    // A line end within a widened string.
    for (auto at = before.find("\xC4\x8A"); is_widened_ && at != std::string_view::npos;
         at = before.find("\xC4\x8A", at + 1)) {
      ++line;
    }
    return fmt::format("line {}: {}", line, what);
  }

  std::string_view text_;
  bool is_widened_;
  std::string key_, error_;
  std::vector<Place> places_;
  Reading reading_;
  bool has_list_ = false;
};

}  // namespace

Scan read_scan_text(std::string_view text) {
  constexpr std::string_view own = "{\"content\": \"FullStationScan\",\n\"FrequencyRegion\"";
  if (!text.starts_with(own)) {
    try {
      return Reader(text, false).read();
    } catch (const Unreadable&) {
      if (text.find("\"ensembleList\"") == std::string_view::npos) throw;
    }
  }
  return Reader(widen_own_strings(text), true).read();
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
