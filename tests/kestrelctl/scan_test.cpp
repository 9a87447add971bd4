// SPDX-License-Identifier: GPL-3.0-or-later
//
// What kestrelctl makes of scan files, also of such that are not JSON.
#include <gtest/gtest.h>

#include <algorithm>
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
std::string service(unsigned id, const std::string& label, unsigned charset = 0,
                    const std::string& components = "{'comp_ID': 12,'TMID': 0,'ASCTyDSCTy': 63}",
                    unsigned is_data = 0) {
  return quoted("{\n'ServiceNo': 0,\n'ServId': " + std::to_string(id) +
                ",\n'AudioOrDataFlag': " + std::to_string(is_data) +
                ",\n'ProgramType': 10,\n'SICharset': " + std::to_string(charset) + ",\n'Label': '" +
                label + "',\n'ComponentList': [" + components + "]\n}");
}
std::string entry(unsigned index, unsigned khz, const std::string& services, unsigned rssi = 60) {
  return quoted("{\n'EnsemleNo': " + std::to_string(index) + ",\n'DigradStatus': {\n'valid': 0,\n" +
                "'rssi': " + std::to_string(rssi) + ",\n'tune_freq': " + std::to_string(khz) +
                "\n},\n'DigitalServiceList': {\n'ServiceList': [\n" + services +
                "]\n},\n'ensembleTime': {\n'year': 2024,\n'month': 3,\n'day': 5,\n'hour': 9,\n" +
                "'minute': 47,\n'second': 44\n}}\n");
}
std::string document(const std::string& entries, const std::string& street = "Quay") {
  return quoted("{'content': 'FullStationScan',\n'FrequencyRegion': 'Unknown',\n'Location': {\n" +
                "'StreetNo': '7',\n'Street': '"s + street + "',\n'PostalCode': '10115',\n" +
                "'City': 'Berlin',\n'Country': 'X',\n'Floor': '2',\n'gps_latitude': '',\n" +
                "'gps_longitude': ''\n},\n'ensembleList': [\n" + entries + "]}");
}

TEST(Scan_file, IsReadWithOrWithoutMending) {
  // Label and street as they stand in the file, the charset; name, street, and what was mended.
  const std::tuple<std::string, std::string, unsigned, std::string, std::string, std::string>
      rows[]{
          {"Radio 1         ", "Quay", 0, "Radio 1", "Quay", ""},
          {R"(The \"One\"       )", "Quay", 0, "The \"One\"", "Quay", ""},
          {"Radio", R"(a "b", "c)", 0, "Radio", R"(a "b", "c)", "Street 5 a quote;"},
          {R"(\"\"\"\"\"\"\"\"\"\"\"\"\"\"\"\")", "\"", 0, "\"\"\"\"\"\"\"\"\"\"\"\"\"\"\"\"", "\"",
           "Street 5 a quote;"},
          {"Radio\\", "C:\\", 15, "Radio\\", "C:\\", "Street 5 a backslash;Label 29 a backslash;"},
          {"K\x97ln", "Quay", 0, "Köln", "Quay", "Label 29 bytes that are no UTF-8;"},
          {"a\nb\tc", "Quay\r", 15, "a b c", "Quay",
           "Street 5 a control character;Label 29 a control character;"},
          {"Radio", R"(x", "City)", 0, "Radio", R"(x", "City)", "Street 5 a quote;"},
      };
  for (const auto& [label, street, charset, expected_name, expected_street, reasons] : rows) {
    const auto scan =
        read_scan_text(document(entry(33, 227360, service(17333, label, charset)), street));
    EXPECT_EQ(scan.blocks.at(0).services.at(0).name, expected_name);
    EXPECT_EQ(scan.location.at(0), std::pair("Street"s, expected_street));
    std::string repairs;
    for (const auto& repair : scan.repairs) {
      repairs += repair.member + ' ' + std::to_string(repair.line) + ' ' + repair.reason + ';';
    }
    EXPECT_EQ(repairs, reasons) << expected_name;
    EXPECT_EQ(format_utc(scan.time), "2024-03-05T09:47:44Z");
  }
}

TEST(Scan_file, BeyondRepairIsRefusedWithThePlace) {
  const auto whole = document(entry(1, 176640, service(5, "Radio")), "a \"quote\"");
  const std::pair<std::string, std::string> rows[]{
      {"", "line 1, column 1: "},
      {"{\"ensembleList\": [}", "line 1, column 19: "},
      {"[]", "is no scan file: "},
      {"{\"ensembleList\": 7}", "is no scan file: "},
      // Behind a string that was mended, and longer for it.
      {whole.substr(0, whole.find("\"Floor\"")) + "oops", "line 9, column 1: "},
      {std::string(100'000, '['), "line 1, column 100001: "}};
  for (const auto& [text, message] : rows) {
    try {
      (void)read_scan_text(text);
      ADD_FAILURE() << text.substr(0, 80);
    } catch (const Unreadable& error) {
      EXPECT_EQ(std::string(error.what()).substr(0, message.size()), message);
    }
  }
}

TEST(Scan_file, OfAnotherShapeIsReadAsFarAsItGoes) {
  const auto scan = read_scan_text(
      R"({"Location": [], "ensembleList": [7, {}, {"EnsemleNo": -1, "DigradStatus": {"rssi": 250,
      "snr": 1e99, "tune_freq": 99999999999}, "DigitalServiceList": {"ServiceList": ["x", {"Label":
      [], "ComponentList": 3}]}, "ensembleTime": {"year": 2024, "month": 13, "day": 1}}]})");
  ASSERT_EQ(scan.blocks.size(), 3U);
  EXPECT_EQ(scan.blocks[2].rssi_dbuv, -6);
  EXPECT_EQ(scan.blocks[2].khz, 0U);
  EXPECT_EQ(scan.blocks[2].services.size(), 2U);
  EXPECT_EQ(scan.time, std::chrono::sys_seconds{});
}

std::vector<Station> some_stations() {
  const auto data = "{'comp_ID': 9,'TMID': 3,'ASCTyDSCTy': 5}";
  const auto secondary = "{'comp_ID': 7,'TMID': 3},{'comp_ID': 8,'TMID': 0,'ASCTyDSCTy': 0}";
  const auto older = read_scan_text(document(entry(33, 227360, service(1, "Old Name"))));
  const auto newer = read_scan_text(
      document(entry(0, 174928, service(1, "Alpha") + "," + service(6, "First")) + "," +
               entry(33, 227360,
                     service(1, "Alpha") + "," + service(2, "Alphabet", 0, secondary) + "," +
                         service(3, "New, \x84 \\\"x\\\"") + "," +
                         service(0xE0001234, "Map", 0, data, 1) + "," + service(5, "Empty", 0, ""),
                     50)));
  return list_stations(std::vector{older, newer});
}

TEST(Stations, AreFoundByNameAsCloseAsPossible) {
  const auto stations = some_stations();
  const std::pair<std::string, std::string> rows[]{
      {"alpha", "Alpha 33,"},  // the whole name; of two places the one that can be tuned
      {"ALPH", "Alpha 33,Alphabet 33,"},
      {"bet", "Alphabet 33,"},
      {"NEW, Í", "New, í \"x\" 33,"},
      {"old", ""}};
  for (const auto& [name, expected] : rows) {
    std::string found;
    for (const auto& station : find_stations(stations, name)) {
      found += station.name + ' ' + std::to_string(station.index) + ',';
    }
    EXPECT_EQ(found, expected) << name;
  }
}

TEST(Stations, AreShownInEveryForm) {
  auto stations = some_stations();
  sort_stations(stations, "signal");
  std::ostringstream table, csv, playlist, json;
  write_table(table, stations);
  write_csv(csv, stations);
  write_playlist(playlist, stations);
  write_json(json, stations);
  EXPECT_EQ('\n' + table.str(), R"(
Name        Block      MHz  Index     Service  hex       Component  hex   Kind  Type       dBuV  SNR
Alpha       5A     174.928      0           1  0001             12  000C  DAB+  Pop music    60    0
First       5A     174.928      0           6  0006             12  000C  DAB+  Pop music    60    0
Alpha       12C    227.360     33           1  0001             12  000C  DAB+  Pop music    50    0
Alphabet    12C    227.360     33           2  0002              8  0008  DAB   Pop music    50    0
Empty       12C    227.360     33           5  0005              0  0000  DAB   Pop music    50    0
Map         12C    227.360     33  3758101044  E0001234          9  0009  data  Pop music    50    0
New, í "x"  12C    227.360     33           3  0003             12  000C  DAB+  Pop music    50    0
)");
  EXPECT_NE(csv.str().find("\r\n\"New, í \"\"x\"\"\",12C,227360,33,3,0x0003,12,0x000C,DAB+,"),
            std::string::npos)
      << csv.str();
  EXPECT_TRUE(playlist.str().starts_with(
      "#EXTM3U\n# left out, kestrel's command line cannot tune index 0: Alpha\n"))
      << playlist.str();
  EXPECT_NE(playlist.str().find("\n#EXTINF:-1,Alpha\nsudo kestrel -f 33 -e 1 -c 12 -p\n"),
            std::string::npos);
  const auto read = nlohmann::json::parse(json.str());
  EXPECT_EQ(read.at(6).at("name"), "New, í \"x\"");
  EXPECT_EQ(read.at(6).at("command"), "sudo kestrel -f 33 -e 3 -c 12 -p");
  EXPECT_EQ(read.at(0).at("command"), "");
}

}  // namespace
