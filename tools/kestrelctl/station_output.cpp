// SPDX-License-Identifier: GPL-3.0-or-later
//
// The forms in which a list of stations is written: one table of columns, two of which are for
// people alone.
#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <ostream>

#include "kestrelctl/stations.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using json = nlohmann::ordered_json;

std::string hexadecimal(std::uint32_t number) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  do {
    text.insert(text.begin(), digits[number % 16]);
    number /= 16;
  } while (number != 0 || text.size() < 4);
  return text;
}

std::string megahertz(std::uint32_t khz) {
  const auto fraction = std::to_string(1000 + khz % 1000);
  return std::to_string(khz / 1000) + '.' + fraction.substr(1);
}

struct Column {
  const char* heading = nullptr;
  const char* key = nullptr;
  json (*value)(const Station&) = nullptr;
  std::string (*shown)(const Station&) = nullptr;  ///< in the table, where it differs
};
constexpr std::array columns{
    Column{"Name", "name", [](const Station& s) -> json { return s.name; }},
    Column{"Block", "block", [](const Station& s) -> json { return s.block; }},
    Column{"MHz", "frequency_khz", [](const Station& s) -> json { return s.khz; },
           [](const Station& s) { return megahertz(s.khz); }},
    Column{"Index", "index", [](const Station& s) -> json { return s.index; }},
    Column{"Service", "service_id", [](const Station& s) -> json { return s.service_id; }},
    Column{"hex", "service_id_hex",
           [](const Station& s) -> json { return "0x" + hexadecimal(s.service_id); },
           [](const Station& s) { return hexadecimal(s.service_id); }},
    Column{"Component", "component_id", [](const Station& s) -> json { return s.component_id; }},
    Column{"hex", "component_id_hex",
           [](const Station& s) -> json { return "0x" + hexadecimal(s.component_id); },
           [](const Station& s) { return hexadecimal(s.component_id); }},
    Column{"Kind", "kind", [](const Station& s) -> json { return s.kind; }},
    Column{"Type", "programme_type", [](const Station& s) -> json { return s.programme_type; }},
    Column{"dBuV", "rssi_dbuv", [](const Station& s) -> json { return s.rssi_dbuv; }},
    Column{"SNR", "snr_db", [](const Station& s) -> json { return s.snr_db; }}};

/// What a column says of a station, as text.
std::string to_text(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

/// As RFC 4180 has it, and no formula for a spreadsheet, whatever a station calls itself.
std::string quote_csv(const json& value) {
  auto text = to_text(value);
  if (value.is_string() && text.find_first_of("=+-@") == 0) text.insert(0, "'");
  if (text.find_first_of("\",\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

}  // namespace

void write_table(std::ostream& out, const std::vector<Station>& stations) {
  std::array<std::size_t, columns.size()> widths{};
  std::array<bool, columns.size()> holds_numbers{};
  std::vector<std::array<std::string, columns.size()>> rows(stations.size() + 1);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    rows[0][i] = columns[i].heading;
    for (std::size_t row = 1; row < rows.size(); ++row) {
      const auto& station = stations[row - 1];
      const auto value = columns[i].value(station);
      holds_numbers[i] = value.is_number();
      rows[row][i] = columns[i].shown == nullptr ? to_text(value) : columns[i].shown(station);
    }
    for (const auto& row : rows) widths[i] = std::max(widths[i], count_columns(row[i]));
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < columns.size(); ++i) {
      line += pad(row[i], widths[i], holds_numbers[i]) + "  ";
    }
    out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
  }
}

void write_json(std::ostream& out, const std::vector<Station>& stations) {
  auto list = json::array();
  for (const auto& station : stations) {
    json entry;
    for (const auto& column : columns) entry[column.key] = column.value(station);
    entry["obstacle"] = station.obstacle();
    entry["command"] = playing_command(station);
    list.push_back(std::move(entry));
  }
  out << list.dump(2) << '\n';
}

void write_csv(std::ostream& out, const std::vector<Station>& stations) {
  const char* separator = "";
  for (const auto& column : columns) {
    out << separator << column.key;
    separator = ",";
  }
  out << "\r\n";
  for (const auto& station : stations) {
    separator = "";
    for (const auto& column : columns) {
      out << separator << quote_csv(column.value(station));
      separator = ",";
    }
    out << "\r\n";
  }
}

void write_playlist(std::ostream& out, const std::vector<Station>& stations) {
  out << "#EXTM3U\n";
  for (const auto& station : stations) {
    if (station.obstacle().empty()) {
      out << "#EXTINF:-1," << station.name << '\n' << playing_command(station) << '\n';
    } else {
      out << "# left out, " << station.obstacle() << ": " << station.name << '\n';
    }
  }
}

}  // namespace kestrelctl
