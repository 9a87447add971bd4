// SPDX-License-Identifier: GPL-3.0-or-later
//
// What kestrelctl makes of scan files, also of such that are not JSON, and of the stations in them.
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <nlohmann/json.hpp>
#include <sstream>
#include <tuple>

#include "kestrelctl/stations.h"

namespace {

using namespace kestrelctl;
using namespace std::string_literals;

/// A scan file as kestrel writes it, its parts and the whole, with ' for each quote of its own.
std::string quoted(std::string text) {
  std::ranges::replace(text, '\'', '"');
  return text;
}
constexpr const char* audio = "{'comp_ID': 12,'TMID': 0,'CA_flag': 0,'ASCTyDSCTy': 63}";
std::string service(unsigned id, const std::string& label, const std::string& components = audio,
                    const std::string& more = "'SICharset': 0") {
  return quoted("{\n'ServiceNo': 0,\n'ServId': " + std::to_string(id) + ",\n'ProgramType': 10,\n" +
                more + ",\n'Label': '") +
         label + quoted("',\n'ComponentList': [" + components + "]\n}");
}
std::string entry(unsigned index, unsigned khz, const std::string& services, unsigned rssi = 60,
                  unsigned day = 5) {
  return quoted("{\n'EnsemleNo': " + std::to_string(index) + ",\n'DigradStatus': {\n'valid': 0,\n" +
                "'rssi': " + std::to_string(rssi) + ",\n'tune_freq': " + std::to_string(khz) +
                "\n},\n'DigitalServiceList': {\n'ServiceList': [\n") +
         services +
         quoted("]\n},\n'ensembleTime': {\n'year': 2024,\n'month': 3,\n'day': " +
                std::to_string(day) + ",\n'hour': 9,\n'minute': 47,\n'second': 44\n}}\n");
}
std::string document(const std::string& entries, const std::string& street = "Quay") {
  return quoted(
             "{'content': 'FullStationScan',\n'FrequencyRegion': 'Unknown',\n'Location': {\n"
             "'StreetNo': '7',\n'Street': '") +
         street +
         quoted(
             "',\n'PostalCode': '10115',\n'City': 'Berlin',\n'Country': 'X',\n'Floor': '2',\n"
             "'gps_latitude': '',\n'gps_longitude': ''\n},\n'ensembleList': [\n") +
         entries + "]}";
}

TEST(Scan_file, IsReadWhateverWasAnsweredAndTransmitted) {
  // Label and street as they are in the file, the charset; name and street.
  const std::tuple<std::string, std::string, unsigned, std::string, std::string> rows[]{
      {"Radio 1         ", "Quay", 0, "Radio 1", "Quay"},
      {R"(\"\"\"\"\"\"\"\"\"\"\"\"\"\"\"\")", "\"", 0, "\"\"\"\"\"\"\"\"\"\"\"\"\"\"\"\"", "\""},
      {"Radio\\", "C:\\new\\", 15, "Radio\\", "C:\\new\\"},
      {"K\x97ln", "Stra\xC3\x9F"s + "e \xFF", 0, "Köln", "Straße \uFFFD"},
      {"a\nb\tc", "Quay\r", 15, "a b c", "Quay"},
      {"Radio", R"(x", "City": "Bonn)", 0, "Radio", R"(x", "City": "Bonn)"},
  };
  for (const auto& [label, street, charset, expected_name, expected_street] : rows) {
    const auto list = service(17333, label, audio, "'SICharset': " + std::to_string(charset));
    const auto scan = read_scan_text(document(entry(33, 227360, list), street));
    EXPECT_EQ(scan.blocks.at(0).services.at(0).name, expected_name);
    EXPECT_EQ(scan.location, (Location{"7", expected_street, "10115", "Berlin", "X", "2", "", ""}));
    EXPECT_EQ(format_utc(scan.time), "2024-03-05T09:47:44Z");
  }
  // As another program writes the same.
  const auto scan = read_scan_text(
      R"({"ensembleList":[{"DigitalServiceList":{"ServiceList":[{"Label":"\"A\"","ServId":1}]}}]})");
  EXPECT_EQ(scan.blocks.at(0).services.at(0).name, "\"A\"");
}

std::string repeated(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += (i > 0 ? "," : "") + text;
  return all;
}

TEST(Scan_file, IsRefusedWithThePlaceOrTheLimit) {
  const auto whole = document(entry(1, 176640, service(5, "Radio")), "a \"quote\"");
  const auto with = [](const std::string& services) { return document(entry(1, 1, services)); };
  const auto unfinished = "is empty or ends too early: the scan did not finish";
  // A file, and the message; an empty one: the file is read.
  const std::pair<std::string, std::string> rows[]{
      {"", unfinished},
      {whole.substr(0, whole.size() - 1), unfinished},
      {whole.substr(0, whole.find("Radio") + 3), unfinished},
      {"{\"ensembleList\": [}", "line 1: cannot be read from '}' on"},
      {"{\"ensembleList\": 7}", "is not a scan file: it has no list of ensembles"},
      {whole.substr(0, whole.find("\"Floor\"")) + "oops", "line 9: cannot be read from 'oops' on"},
      {"{\"ensembleList\": [1e999]}", "has a number that is too large"},
      {"{\"x\": \"" + std::string(70'000, 'x') + "\"}", "is not a scan file"},
      {"{\"x\": \"" + repeated(40'000, "\\\"") + "\"}", "is not a scan file"},
      {std::string(60'000, '['), "has more levels than 12"},
      {document(repeated(48, "{}")), ""},
      {document(repeated(49, "{}")), "has more entries than 48"},
      {with(repeated(255, "{}")), ""},
      {with(repeated(256, "{}")), "has more services in an entry than 255"},
      {with(service(1, "x", repeated(15, "{}"))), ""},
      {with(service(1, "x", repeated(16, "{}"))), "has more components in a service than 15"},
      {with(service(1, "xxxxxxxxxxxxxxxxx")), "has a text of 17 characters, more than 16"},
      {document("", std::string(400, 'x')), ""},
      {document("", std::string(401, 'x')), "has a text of 401 characters, more than 400"}};
  for (const auto& [text, expected] : rows) {
    std::string message;
    try {
      (void)read_scan_text(text);
    } catch (const Unreadable& error) {
      message = error.what();
    }
    EXPECT_EQ(message, expected) << text.substr(0, 80);
  }
}

std::vector<Scan> some_scans() {
  const auto data = "{'comp_ID': 9,'TMID': 3,'ASCTyDSCTy': 5}";
  const auto secondary = "{'comp_ID': 7,'TMID': 3},{'comp_ID': 0,'TMID': 0,'ASCTyDSCTy': 0}";
  const auto scrambled = "{'comp_ID': 4,'TMID': 0,'CA_flag': 1,'ASCTyDSCTy': 63}";
  auto older = read_scan_text(document(entry(33, 227360, service(1, "Old Name"))));
  auto newer = read_scan_text(document(
      entry(0, 174928, service(1, "Alpha", audio) + "," + service(6, "Radio 10"), 40) + "," +
      entry(33, 227360,
            service(1, "Alpha") + "," + service(2, "Alphabet", secondary) + "," +
                service(3, "New, \x84 \\\"x\\\"") + "," + service(0xE0001234, "Alpha", data) + "," +
                service(5, "Empty", "") + "," + service(7, "Radio 2") + "," +
                service(8, "=Radio 2;", audio, "'SICharset': 0,'CAId': 1") + "," +
                service(9, "Radio Pay", scrambled) + "," + service(10, "Radio 2"),
            50)));
  auto fm = read_scan_text(write_fm_scan({{98500, 18978, "Küste", 10, -3, 36},
                                          {104100, 18978, "Küste", 10, -9, 30},
                                          Fm_station{.khz = 103700, .ps = ""}},
                                         {}));
  return {std::move(older), std::move(newer), std::move(fm)};
}

TEST(Stations, AreFoundByNameAsCloseAsPossible) {
  const auto stations = list_stations(some_scans());
  const std::tuple<std::string, Station_filter, std::string> rows[]{
      // The whole name; of two places the stronger; no data service.
      {"alpha", {}, "Alpha 227360,"},
      {"alpha", {.block = "5a"}, "Alpha 174928,"},
      {"alpha", {.service_id = 0xE0001234}, "Alpha 227360,"},
      {"ALPH", {}, "Alpha 227360,Alphabet 227360,"},
      {"bet", {}, "Alphabet 227360,"},
      {"new, i", {}, "New, í \"x\" 227360,"},
      {"radio", {}, "Radio 2 227360,Radio 2 227360,Radio 10 174928,"},  // those that play
      {"radio 2", {.service_id = 10}, "Radio 2 227360,"},
      {"pay radio", {}, "Radio Pay 227360,"},  // what cannot be played is found, too
      {"2 =radio", {}, "=Radio 2; 227360,"},
      {"103.7", {}, "103.70 MHz 103700,"},
      {"old", {}, ""}};
  for (const auto& [name, filter, expected] : rows) {
    std::string found;
    for (const auto& station : find_stations(stations, name, filter)) {
      found += station.name + ' ' + std::to_string(station.khz) + ',';
    }
    EXPECT_EQ(found, expected) << name;
  }
}

TEST(Stations, SayWhereTheyAreAndWhatPlaysThem) {
  const auto scans = some_scans();
  const auto stations = list_stations(scans);
  const std::tuple<std::string, std::string, std::string> rows[]{
      {"alphabet", "no command: component 0", ""},
      {"radio 10", "no command: index 0", ""},
      {"new", "", "sudo kestrel -f 33 -e 3 -c 12 -p"},
      {"kuste", "", "sudo kestrel -F 98500"},
      {"radio pay", "scrambled", ""}};
  for (const auto& [name, why, command] : rows) {
    const auto found = find_stations(stations, name);
    ASSERT_EQ(found.size(), 1U) << name;
    EXPECT_EQ(kestrel_command(found[0]), command) << why;
    auto kept = refer_to(found[0]);
    kept.name = "As it was called";
    EXPECT_EQ(find_station(stations, kept)->name, found[0].name);
  }
  EXPECT_EQ(frequency_list_of(find_stations(stations, "alphabet")[0], scans),
            std::vector<std::uint32_t>{});  // its index is 33, of a list of two
  EXPECT_EQ(frequency_list_of(find_stations(stations, "radio 10")[0], scans),
            (std::vector<std::uint32_t>{174928, 227360}));
  EXPECT_EQ(find_station(stations, {}), nullptr);
}

TEST(Stations, AreShownInEveryForm) {
  auto stations = list_stations(some_scans());
  sort_stations(stations, "name");
  std::ostringstream table, csv, json;
  write_table(table, stations);
  write_csv(csv, stations);
  write_json(json, stations);
  EXPECT_EQ('\n' + table.str(), R"(
Name        Place       Kind  Type       dBuV  SNR
103.70 MHz  103.70 MHz  FM    None          0    0
=Radio 2;   12C         DAB+  Pop music    50    0  scrambled
Alpha       5A          DAB+  Pop music    40    0
Alpha       12C         DAB+  Pop music    50    0
Alpha       12C         data  Pop music    50    0  data service
Alphabet    12C         DAB   Pop music    50    0
Empty       12C         DAB   Pop music    50    0  no audio
Küste       98.50 MHz   FM    Pop music    -3   36
Küste       104.10 MHz  FM    Pop music    -9   30
New, í "x"  12C         DAB+  Pop music    50    0
Radio 2     12C         DAB+  Pop music    50    0
Radio 2     12C         DAB+  Pop music    50    0
Radio 10    5A          DAB+  Pop music    40    0
Radio Pay   12C         DAB+  Pop music    50    0  scrambled
)");
  for (const std::string row :
       {"\"New, í \"\"x\"\"\",12C,227360,33,3,0x0003,12,0x000C,0,DAB+,Pop music,50,0,true,,sudo",
        "\"'=Radio 2;\",12C,", "Küste,,98500,0,0,0x0000,0,0x0000,18978,FM,"}) {
    EXPECT_NE(csv.str().find("\r\n" + row), std::string::npos) << csv.str();
  }
  const auto read = nlohmann::json::parse(json.str());
  EXPECT_EQ(read.at(9).at("name"), "New, í \"x\"");
  EXPECT_EQ(read.at(9).at("playable"), true);
  EXPECT_EQ(read.at(6).at("obstacle"), "no audio");
}

}  // namespace
