// SPDX-License-Identifier: GPL-3.0-or-later
//
// The command line, and the run sequence on the simulated receiver.
#include "cli/options.h"

#include <unistd.h>

#include <algorithm>
#include <limits>
#include <tuple>

#include "cli/run.h"
#include "support.h"

namespace {

/// Every field, for comparison.
auto fields_of(const arguments& given) {
  const auto& [volume, volume_given, boot, firmware, shutdown, i2s_given, i2s_out, chip_info,
               digrad, event, datetime, play, next, previous, fm, service, component, frequency,
               rds, json, list, scan, has_list_file, list_file, station_text] = given;
  return std::tuple(volume, volume_given, boot, firmware, shutdown, i2s_given, i2s_out, chip_info,
                    digrad, event, datetime, play, next, previous, fm, service, component,
                    frequency, rds, json, list, scan, has_list_file, std::string(list_file),
                    station_text);
}

// A number beyond a long becomes the longest one: 32-bit systems know no service ids above it.
constexpr auto last_service =
    static_cast<unsigned int>(std::min<long long>(4'294'967'295, std::numeric_limits<long>::max()));

TEST(Options, EachOptionSetsItsOwnFields) {
  char list_txt[] = "list.txt", no_file[] = "-";
  const std::pair<const char*, arguments> cases[]{
      {"", {.volume = 30, .firmware = 'D', .frequency_list_file = no_file}},
      {"-l 50 -l 7x", {.volume = 7, .volume_given = 1}},
      {"--level=-1", {.volume = 4'294'967'295, .volume_given = 1}},
      {"-b X --boot FMHD", {.boot = 1, .firmware = 'F'}},
      {"-kidn", {.shutdown = 1, .chip_info = 1, .digrad_status = 1, .event_status = 1}},
      {"--chip_info --datetime --play", {.chip_info = 1, .datetime = 1, .play = 1}},
      {"-gDtp", {.datetime = 1, .play = 1, .digital_service_list = 1, .station_text = 1}},
      {"-xX --rds_status", {.next = 1, .previous = 1, .rds_status = 1}},
      {"-rju", {.rds_status = 1, .format_json = 1, .full_scan = 1}},
      {"-f 033 -e 17333 -c 65548", {.service = 17333, .component = 65548, .frequency = 33}},
      {"-f 511", {.frequency = 255}},
      {"-f 33 --frequency abc", {.frequency = 0}},
      {"-F 98500 --service=4294967295", {.fm_frequency = 98500, .service = last_service}},
      {"-o 257", {.i2s_given = 1, .i2s_out = 257}},
      {"-o 1 --i2s_out=0", {.i2s_given = 1}},
      {"-y list.txt", {.frequency_list = 1, .frequency_list_file = list_txt}}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.first);
    const auto parse = [&row](int argc, char** argv) {
      arguments given;
      const auto error = argp_parse(&argp, argc, argv, 0, nullptr, &given);
      EXPECT_EQ(fields_of(given), fields_of(row.second));  // while the words are there
      return error;
    };
    EXPECT_EQ(with_arguments(row.first, parse), 0);
  }
}

TEST(Options, HelpIsWordForWord) {
  std::string text = std::string(argp.args_doc) + argp.doc + argp_program_bug_address;
  for (const auto* row = argp.options; row->name != nullptr; ++row) {
    text.append(row->name).append(1, char(row->key)).append(row->arg == nullptr ? "" : row->arg);
    text.append(row->doc);
    EXPECT_EQ(row->flags + row->group, 0) << row->name;
  }
  std::uint32_t checksum = 0;  // of the words, which are in the table alone
  for (const char letter : text) checksum = checksum * 31 + std::uint8_t(letter);
  EXPECT_EQ(checksum, 3896483469U) << text;
}

class Run : public Board {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "a run needs root";
  }
  enum Before { no_bus, unbootable, in_reset, booted };
  static std::string output(Before before, const std::string& line) {
    sim::Settings settings;
    if (before == no_bus) settings.board_files.erase("/dev/spidev0.0");
    if (before == unbootable) settings.faults = {{sim::Fault_kind::command_error, 0x07}};
    sim::power_on(settings);
    if (before == booted) sim::set_booted(true);
    return behind_notice(printed([&] { EXPECT_EQ(with_arguments(line, run), 0); }));
  }
  /// The commands sent; one that is repeated counts once.
  static std::string opcodes() {
    std::string all;
    for (const auto& command : commands()) {
      if (!all.ends_with(command.substr(0, 2) + ' ')) all += command.substr(0, 2) + ' ';
    }
    return all;
  }
};

TEST_F(Run, DoesAndSaysWhatWasAskedFor) {
  const std::string enabled = "SPI bus enabled.\n\n";
  const std::string asleep =
      "Si468x is not booted up, no firmware loaded. Please use the command boot first.\n\n";
  const std::string incomplete = "To play, a service id and component id have to be given\n\n";
  const std::string untuned = "Could not tune to frequency\n\n";
  // The board before, the options, what is printed and sent, and how the run ends.
  const std::tuple<Before, const char*, std::string, std::string, const char*> cases[]{
      {no_bus, "-b D -k",
       "Error initializing SPI bus. Check that SPI is enabled and that /dev/spidev0.0 exists\n", "",
       "init"},
      {unbootable, "-b D -k", enabled + "Boot up failed\n\n" + asleep, "01 06 04 06 04 07 ",
       "read 7"},
      {in_reset, "-l 20 -k", enabled + asleep, "", "read 7"},
      {in_reset, "-b X", enabled + asleep, "", "read 7"},
      {booted, "", enabled, "", "read 7"},
      {booted, "-b X -j", enabled, "", "read 7"},
      {booted, "-f 0 -k", enabled + "Si468x shut down\n\n", "", "close"},
      {booted, "-p -e 17333", enabled + incomplete, "", "read 7"},
      {booted, "-l 9 -p -c 12", enabled + incomplete + "Setting volume to 9\n\n", "13 14 ",
       "read 7"},
      {booted, "-f 300 -k -l 5", enabled + untuned, "b0 b2 ", "delay_ms 200"},  // beyond the list
      {booted, "-F 9 -k -f 40", enabled + untuned, "b0 b2 ", "delay_ms 200"},   // nobody there
      {booted, "-t", enabled + "0-0-0T0:0:0Z\n", "bc ", "read 12"},             // untuned
      {booted, "-o 256 -y /dev/null", enabled + "Sent new frequency list to the Si468x.\n",
       "b8 13 14 13 14 13 14 ", "read 7"}};
  for (const auto& [before, line, text, sent, last] : cases) {
    EXPECT_EQ(output(before, line), text) << line;
    EXPECT_EQ(opcodes(), sent) << line;
    EXPECT_EQ(happened().back(), last) << line;
  }
  EXPECT_EQ(commands().at(3), "13 00 00 08 01 00");  // the low 8 bits of 256
}

TEST_F(Run, ActsInItsOwnOrder) {
  for (const auto* line : {"-k -t -n -D -g -d -i -l 5 -p -c 12 -e 17333 -f 33 -o 1",
                           "-o 1 -f 33 -e 17333 -c 12 -p -l 5 -i -d -g -D -n -t -k"}) {
    EXPECT_TRUE(
        output(booted, line)
            .starts_with("SPI bus enabled.\n\nTuned.\n\nSetting volume to 5\n\nChip info ---"));
    EXPECT_EQ(opcodes(), "13 14 13 14 13 14 b0 b2 81 13 14 08 09 12 b2 80 84 b3 bc ");
    EXPECT_EQ(happened().back(), "close");
    EXPECT_EQ(sim::violations(), Lines{});
  }
}

}  // namespace
