// SPDX-License-Identifier: GPL-3.0-or-later
//
// The scan with its questions and its file, the time it keeps, and the user's own frequency list.

#include <iostream>
#include <nlohmann/json.hpp>
#include <tuple>

#include "cli/frequency_list_file.h"
#include "cli/run.h"
#include "directory.h"
#include "scan/ensemble_list.h"
#include "support.h"

namespace {

const std::string questions =
    "Please indicate the location of the Corvane (the antenna location) during the scan:\n"
    "Street number (optional): \nStreet name: \nPostal code: \nCity: \nCountry: \n"
    "Indoor or outdoor. If indoor, please indicate the building level (0 = ground floor) as well: "
    "\nGPS latitude (optional): \nGPS longitude (optional): \nThank you\n";

std::string progress(unsigned khz, std::size_t rssi) {
  return "Scanning frequency: " + std::to_string(khz) +
         " kHz. Found signal with RSSI: " + std::string(rssi, '-') + '\n';
}

/// In a directory of its own, with standard input from a string.
class Scan : public Board, protected Directory {
 protected:
  Scan() { enter(); }
  ~Scan() override { std::cin.rdbuf(input_); }
  template <class Action>
  std::string printed_with(const std::string& answers, Action action) {
    answers_.str(answers);
    std::cin.rdbuf(answers_.rdbuf());
    return printed([&] { EXPECT_EQ(action(), 0); });
  }

 private:
  std::streambuf* input_ = std::cin.rdbuf();
  std::istringstream answers_;
};

TEST_F(Scan, TimeIsShownAsItIsSent) {
  const auto json =
      report("\"ensembleTime\": {|year|month|day|hour|minute|second", "2017|3|5|9|7") + '\n';
  const auto date = reply({0xE1, 0x07, 0x03, 0x05, 0x09, 0x07, 0x00}), ones = reply(Bytes(7, 0xFF));
  play(
      date, print_ensembletime,
      {{.what = "date", .text = "2017-3-5T9:7:0Z\n"},
       {.what = "not checked", .after = 2, .then = ones, .text = "65535-255-255T255:255:255Z\n"},
       {.after = 2, .then = frame(0x80, 0xC2, Bytes(7, 1)), .code = 35, .text = "0-0-0T0:0:0Z\n"}});
  Si468x_time time;
  play(date, [&] { return time.get_ensembletime(), time.clean(), time.print_data(); },
       {{.what = "cleaned", .text = "0-0-0T0:0:0Z\n"}});
  play(date, print_ensembletime_json, {{.what = "date", .text = json}});
  EXPECT_EQ(happened(), (Lines{"frame bc 01", "read 7", "read 12"}));
}

TEST_F(Scan, FrequencyListFileIsReadLineByLine) {
  const std::string good = "174928\n", length_20 = "174928 8901234567890\n", zero(1, '\0');
  std::string lines;
  for (int i = 0; i < 10'000; ++i) lines.append(good);
  const auto lines_48 = lines.substr(0, 48 * good.size());
  const char* const bounds = "Frequency out of bounds. Frequency should be given in kHZ\n";
  const char* const many = "Too many frequencies. The frequency list holds 48 at the most\n";
  using List = std::vector<unsigned>;
  // What is in the file, what is sent, and what is said when nothing is.
  std::vector<std::tuple<std::string, List, std::string>> cases{
      {"174928\n0176640\n", {174'928, 176'640}, ""},
      {" \t+174928 kHz\r\n176640\r\n10000x\n1000000", {174'928, 176'640, 10'000, 1'000'000}, ""},
      {"", {}, ""},
      {"174928 890123456789\n174928 890123456789", {174'928, 174'928}, ""},  // 19 characters
      {good + length_20 + good, {174'928}, ""},
      {std::string(5'000'000, '1'), {}, ""},
      {lines_48, List(48, 174'928), ""},
      {lines_48 + length_20, List(48, 174'928), ""},
      {"174928" + zero + "9\n176640\n", {174'928, 176'640}, ""},
      {lines_48 + good, {}, many},
      {lines, {}, many}};
  for (const auto& bad :
       {std::string("174928\n\n176640\n"), good + '\n', good + "9999\n", lines_48 + "1\n",
        std::string("1000001"), "-" + good, std::string(19, '9'), zero + good}) {
    cases.emplace_back(bad, List{}, bounds);
  }
  const auto load = [](std::string path) { return load_freq_list_from_file(path.data()); };
  const auto load_list = [&] { return load("list"); };
  for (const auto& [text, list, error] : cases) {
    SCOPED_TRACE(text.substr(0, 60));
    write("list", text);
    std::string said;
    Bytes sent{0xB8, std::uint8_t(list.size()), 0, 0};
    for (const auto khz : list) {
      said.append("Added frequency to frequency list: ").append(std::to_string(khz)).append("\n");
      for (const auto shift : {0U, 8U, 16U, 24U}) sent.push_back(std::uint8_t(khz >> shift));
    }
    if (error.empty()) {
      const auto failed = said + "Error setting frequency list.\n";
      play(ready, load_list,
           {{.after = 1, .then = refused, .result = -1, .code = 20, .text = failed}});
      said.append("Sent new frequency list to the Si468x.\n");
    }
    play(ready, load_list, {{.result = error.empty() ? 0 : -1, .text = said + error}});
    EXPECT_EQ(sim::commands(), std::vector<Bytes>(error.empty() ? 1 : 0, sent));
  }
  write("list", good);
  start().by_default(ready);
  mark();
  EXPECT_EQ(printed(load_list),
            "Added frequency to frequency list: 174928\n|Sent new frequency "
            "list to the Si468x.\n");
  for (const auto* missing : {"missing", ".", "list/list", ""}) {
    play(ready, [&] { return load(missing); },
         {{.what = missing, .result = -1, .text = "Frequency file does not exist\n"}});
    EXPECT_EQ(commands(), Lines{});
  }
}

TEST_F(Scan, WholeBandIsVisitedAndWhatIsThereIsWritten) {
  // Refused: the tune after Hochried, the list of the second ensemble, the time of the third.
  constexpr auto refusal = sim::Fault_kind::command_error;
  receive(true, {{refusal, 0xB0, 3}, {refusal, 0x80, 2}, {refusal, 0xBC, 2}});
  const auto output = printed_with("1\nA\n10115\nBerlin\n", dab_full_scan);
  const auto document = nlohmann::json::parse(content("ensemblescan_10115_Berlin.json"));
  ASSERT_EQ(document["ensembleList"].size(), sim::band_iii_blocks);
  std::string expected;
  std::size_t rssi = 0, found = 0;
  for (std::size_t i = 0; i < sim::band_iii_blocks; ++i) {
    const auto& entry = document["ensembleList"][i];
    const auto khz = sim::band_iii_khz()[i];
    sim::Ensemble here{.rssi_dbuv = sim::noise_dbuv(khz)};
    for (const auto& one : sim::air().ensembles) here = one.khz == khz ? one : here;
    if (i != 3) rssi = here.rssi_dbuv;  // else the one before is shown again
    expected.append(progress(khz, rssi));
    if (here.list) ++found, expected.append("Found ensemble!\n");
    const bool has_list = here.list && found != 2;
    // Passwind's time comes long after its list.
    const bool has_time = here.time && found != 3 && here.time < std::chrono::seconds(5);
    EXPECT_EQ(entry["EnsemleNo"], i);
    EXPECT_EQ(entry["DigradStatus"]["tune_freq"], i == 3 ? 0 : khz);
    EXPECT_EQ(entry.contains("DigitalServiceList"), has_list);
    EXPECT_EQ(entry.contains("ensembleTime"), has_time);
    for (std::size_t k = 0; has_list && k < here.services.size(); ++k) {
      EXPECT_EQ(entry["DigitalServiceList"]["ServiceList"].at(k)["ServId"], here.services[k].id);
    }
  }
  EXPECT_EQ(output, expected + questions);
}

TEST_F(Scan, DocumentIsWrittenToTheByteAndBuffersAreReused) {
  receive(true, {{sim::Fault_kind::command_error, 0xB0, 0}});
  unsigned frequencies_khz[]{174'928, 227'360};
  EXPECT_EQ(Si468x_DAB_set_freq_list(frequencies_khz, 2), 0);
  Ensemble_list ensembles;
  const auto scan = [&] { return ensembles.rescan(); };
  EXPECT_EQ(printed_with("1\nAm Tor\n10115\nBerlin\nDE\n0\n52.5\n13.4\nmore", scan),
            progress(174'928, 0) + progress(227'360, 62) + "Found ensemble!\n" + questions);
  write("ensemblescan_10115_Berlin.json", std::string(99'999, 'x'));
  EXPECT_EQ(ensembles.save_to_file(), 0);
  std::stringstream text;
  text << "{\"content\": \"FullStationScan\",\n\"FrequencyRegion\": \"Unknown\",\n\"Location\": {\n"
          "\"StreetNo\": \"1\",\n\"Street\": \"Am Tor\",\n\"PostalCode\": \"10115\",\n\"City\": "
          "\"Berlin\",\n\"Country\": \"DE\",\n\"Floor\": \"0\",\n\"gps_latitude\": \"52.5\",\n"
          "\"gps_longitude\": \"13.4\"\n},\n\"ensembleList\": [\n{\n\"EnsemleNo\": 0,\n";
  Si468x_DAB_digrad_status().json_print_data(text), text << "}\n,{\n\"EnsemleNo\": 1,\n";
  ensembles.digrad_status[1].json_print_data(text), text << ",\n";
  ensembles.service_list[1].json_print_data(text), text << ",\n";
  ensembles.ensemble_time[1].json_print_data(text), text << "}\n]}";
  EXPECT_EQ(content("ensemblescan_10115_Berlin.json"), text.str());
  // The slot of the refused tune has no buffer until the second scan, which succeeds.
  const auto* const buffer = ensembles.service_list[1].ServiceEntries;
  EXPECT_EQ(ensembles.service_list[0].ServiceEntries, nullptr);
  printed_with("", scan);
  EXPECT_EQ(ensembles.service_list[1].ServiceEntries, buffer);
  EXPECT_NE(ensembles.service_list[0].ServiceEntries, nullptr);
  EXPECT_EQ(ensembles.file_name, "ensemblescan__.json");
}

TEST_F(Scan, ComesAfterTheReportsAndBeforeTheShutdown) {
  if (geteuid() != 0) GTEST_SKIP() << "a run needs root";
  start().by_default(reply({0}));  // no frequencies
  Si468x_SPI_RSTB_high();
  mark();
  const auto output = printed_with("", [] { return with_arguments("-k -u -r", run); });
  EXPECT_TRUE(output.ends_with("Thank you\n|Si468x shut down\n\n")) << output;
  EXPECT_EQ(commands().back(), "b9 00");
  EXPECT_EQ(happened().back(), "close");
}

TEST_F(Scan, AnswersAreTakenAsTheyAreTyped) {
  const std::string megabytes(3'000'000, 'x');
  // What is typed; the street as it is kept; the file, or nothing.
  const std::tuple<std::string, std::string, std::string> cases[]{
      {"", "", "ensemblescan__.json"},
      {"7\nAm \"Tor\\", "Am \"Tor\\", "ensemblescan__.json"},  // ends in the middle of a line
      {"7\r\nAm Tor\r\n1\r\nB\r\n", "Am Tor\r", "ensemblescan_1\r_B\r.json"},
      {"\n" + megabytes + "\n1\nB\n", megabytes, "ensemblescan_1_B.json"},
      {"\n\n1\nno/such\n", "", ""},
      {"\n\n" + megabytes, "", ""}};
  start().by_default(reply({0}));  // no frequencies
  for (const auto& [typed, street, file] : cases) {
    EXPECT_EQ(printed_with(typed, dab_full_scan), questions);
    EXPECT_EQ(std::filesystem::is_empty("."), file.empty());
    const auto text = content(file);
    EXPECT_EQ(text.find("\"Street\": \"" + street + "\",\n") == std::string::npos, file.empty());
    EXPECT_NE(text.ends_with("\n},\n\"ensembleList\": [\n]}"), file.empty());
    std::filesystem::remove(file);
  }
}

TEST_F(Scan, VisitsNoMoreThanItsSlotsAndShowsEachAtOnce) {
  start().by_default(frame(0x81, 0xC0, {0xFF, 0x01, 0xFF, 0, 30}));  // 255 frequencies, all used
  mark();
  std::string expected;
  for (unsigned i = 0; i < 48; ++i) {
    expected += '|' + progress(i == 0 ? 30 : 0, 255) + "||Found ensemble!\n";
  }
  EXPECT_EQ(printed_with("", dab_full_scan), expected + questions);
  const auto sent = commands();
  EXPECT_EQ(Lines(sent.end() - 3, sent.end()), (Lines{"80 00", "80 00", "bc 01"}));
  Ensemble_list ensembles;
  const auto beyond = [&] { return ensembles.visit(48, ensembles.digrad_status[0], [] {}) + 6; };
  EXPECT_EQ(printed_with("", beyond), "|||");
  // An entry has a list if that has services, and a time if that has a year.
  ensembles.number_of_frequencies = 255;
  ensembles.service_list[0].ServiceListVersion = ensembles.ensemble_time[0].month = 1;
  std::stringstream document;
  EXPECT_EQ(ensembles.json_print_data(document), 0);
  const auto entries = nlohmann::json::parse(document)["ensembleList"];
  EXPECT_EQ(entries.size(), 48U);
  EXPECT_EQ(entries[0].size(), 2U);
}

}  // namespace
