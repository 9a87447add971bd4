// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl stations`, and the forms in which it writes a list: one table of columns says which
// form has which.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <regex>

#include "kestrelctl/commands.h"
#include "kestrelctl/now_json.h"
#include "kestrelctl/receiver.h"
#include "kestrelctl/stations.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

enum class Shown { always, with_ids, never };  ///< in the table
struct Column {
  const char* heading;
  const char* key;  ///< in JSON and CSV; empty: in the table alone
  Shown shown;
  Json (*value)(const Station&);
};

/// What a member of a station, or one of its functions, says.
template <auto member>
Json get(const Station& station) {
  return std::invoke(member, station);
}
template <auto id>
Json as_hex(const Station& station) {
  return fmt::format("0x{:04X}", station.*id);
}

constexpr auto all_columns = std::to_array<Column>({
    {"Name", "name", Shown::always, get<&Station::name>},
    {"Place", "", Shown::always, get<&Station::place>},
    {"", "block", Shown::never, [](const Station& s) -> Json { return block_name(s.khz); }},
    {"kHz", "frequency_khz", Shown::with_ids, get<&Station::khz>},
    {"Index", "index", Shown::with_ids, get<&Station::index>},
    {"Service", "service_id", Shown::with_ids, get<&Station::service_id>},
    {"hex", "service_id_hex", Shown::with_ids, as_hex<&Station::service_id>},
    {"Component", "component_id", Shown::with_ids, get<&Station::component_id>},
    {"", "component_id_hex", Shown::never, as_hex<&Station::component_id>},
    {"PI", "pi", Shown::with_ids, get<&Station::pi>},
    {"Kind", "kind", Shown::always, get<&Station::kind>},
    {"Type", "programme_type", Shown::always, get<&Station::programme_type>},
    {"dBuV", "rssi_dbuv", Shown::always, get<&Station::rssi_dbuv>},
    {"SNR", "snr_db", Shown::always, get<&Station::snr_db>},
    {"", "playable", Shown::never, [](const Station& s) -> Json { return s.obstacle().empty(); }},
    {"", "obstacle", Shown::always, get<&Station::obstacle>},
    {"", "command", Shown::never, [](const Station& s) -> Json { return kestrel_command(s); }},
});

/// What a column says of a station, as text.
std::string cell_text(const Json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

/// Would a spreadsheet take it for a formula? Blanks and invisible characters do not keep it.
bool is_formula(std::string_view text) {
  for (const char32_t c : decode_utf8(text)) {
    const bool is_passed_over = c <= U' ' || c == 0xA0 || c == 0xAD ||
                                (c >= 0x2000 && c < 0x2070) || c == 0x3000 || c == 0xFEFF;
    if (!is_passed_over)
      return std::u32string_view(U"=+-@＝＋－＠").find(c) != std::u32string::npos;
  }
  return false;
}

/// As RFC 4180 has it, for every separator that a spreadsheet may expect.
std::string quote_csv(const Json& value) {
  auto text = cell_text(value);
  if (value.is_string() && is_formula(text)) text.insert(0, "'");
  if (text.find_first_of("\",;\t\r\n") == std::string::npos) return text;
  return '"' + std::regex_replace(text, std::regex("\""), "\"\"") + '"';
}

}  // namespace

void write_table(std::ostream& out, const std::vector<Station>& stations, bool with_ids) {
  std::vector<std::string> lines(stations.size() + 1);
  for (const auto& column : all_columns) {
    if (column.shown == Shown::never || (column.shown == Shown::with_ids && !with_ids)) continue;
    std::vector<std::string> cells{column.heading};
    bool has_numbers = false;
    for (const auto& station : stations) {
      const auto value = column.value(station);
      has_numbers = value.is_number();
      cells.push_back(cell_text(value));
    }
    const auto width = count_columns(*std::ranges::max_element(cells, {}, count_columns));
    for (std::size_t row = 0; row < lines.size(); ++row) {
      lines[row] += pad(cells[row], width, has_numbers) + "  ";
    }
  }
  for (const auto& line : lines) out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
}

Json describe_as_json(const Station& station) {
  Json entry;
  for (const auto& column : all_columns) {
    if (*column.key != '\0') entry[column.key] = column.value(station);
  }
  return entry;
}

void write_json(std::ostream& out, const std::vector<Station>& stations) {
  const char* separator = "[\n";
  for (const auto& station : stations) {
    out << std::exchange(separator, ",\n") << describe_as_json(station).dump();
  }
  out << (stations.empty() ? "[]\n" : "\n]\n");
}

void write_csv(std::ostream& out, const std::vector<Station>& stations) {
  const auto write_row = [&out](auto cell) {
    const char* separator = "";
    for (const auto& column : all_columns) {
      if (*column.key != '\0') out << std::exchange(separator, ",") << cell(column);
    }
    out << "\r\n";
  };
  write_row([](const Column& column) { return column.key; });
  for (const auto& station : stations) {
    write_row([&station](const Column& column) { return quote_csv(column.value(station)); });
  }
}

int list_stations_command(const Store& store, const Stations_options& options) {
  auto stations = options.files.empty() ? store.stations() : std::vector<Station>();
  if (stations.empty()) stations = list_stations(read_scans_or_store(options.files, store));
  const auto wanted = fold(options.filter);
  std::erase_if(stations, [&wanted](const Station& station) {
    return fold(station.name).find(wanted) == std::string::npos;
  });
  sort_stations(stations, options.sort);
  if (options.is_json) {
    write_json(std::cout, stations);
  } else if (options.is_csv) {
    write_csv(std::cout, stations);
  } else if (!stations.empty()) {
    write_table(std::cout, stations, options.has_ids);
  }
  if (!stations.empty()) return exit_status::success;
  std::cerr << "kestrelctl: " << (wanted.empty() ? "no station was found" : "no station matches")
            << '\n';
  return exit_status::not_found;
}

}  // namespace kestrelctl
