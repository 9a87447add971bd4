// SPDX-License-Identifier: GPL-3.0-or-later
//
// What kestrelctl reads, with any content. Input: a scan file.
#include "kestrelctl/scan_file.h"
#include "kestrelctl/stations.h"
#include "kestrelctl/text.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrelctl;
  Scan scan;
  try {
    scan = read_scan_text(std::string(data, data + size));
  } catch (const Unreadable& error) {
    const std::string message = error.what();
    fuzz::require(make_harmless(message) == message, "a message that can be printed");
    return 0;
  }
  const auto stations = list_stations(std::span(&scan, 1));
  std::ostringstream table, json, csv;
  write_table(table, stations);
  write_json(json, stations);
  write_csv(csv, stations);
  std::string line;
  for (std::istringstream lines(table.str()); std::getline(lines, line);) {
    fuzz::require(make_harmless(line) == line, "a table that can be printed");
  }
  for (const auto& station : stations) {
    fuzz::require(!find_stations(stations, station.name).empty(), "a station that is found");
  }
  return 0;
}
