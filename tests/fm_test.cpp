// SPDX-License-Identifier: GPL-3.0-or-later
//
// FM: tuning and seeking on the wire and on the air, and the reports on signal and RDS.
#include <unistd.h>

#include <functional>
#include <tuple>

#include "cli/run.h"
#include "si468x/fm_rds.h"
#include "si468x/fm_tuning.h"
#include "support.h"

namespace {

using Fm = Board;

constexpr std::uint64_t never = 10'000'000;  // microseconds until a seek is given up

constexpr const char* rsq =
    "FM RSQ status  |Signal Noise Ratio above high threshold:|Signal Noise Ratio below low "
    "threshold:|RSSI above high threshold:|RSSI below low threshold:|Seek band limit was hit:|"
    "HD was detected (HD level above threshold):|Filtered HD was detected:|AFC rail indicator:|"
    "Valid channel:|Currently tuned frequency:|Frequency offset:|RSSI:|Signal Noise Ratio:|"
    "Multipath indicator:|Antenna tuning capacitor value:|"
    "HD availability confidence factor (level):|Filtered HD level:";
constexpr const char* rds =
    "FM RDS status  |Traffic Program code changed:|Program Identification code changed:|RDS "
    "synchronization status changed:|RDS data received, FIFO full:|Traffic Program and PTY valid:|"
    "Program Identification code valid:|RDS synchronized:|RDS FIFO overrun, data lost:|TP flag:|"
    "PTY code:|PTY Meaning (Europe):|Program Identification:|Groups left in RDS FIFO:|Bit Errors "
    "in Block A:|Bit Errors in Block B:|Bit Errors in Block C:|Bit Errors in Block D:|Block A|"
    "Block B|Block C|Block D";

TEST_F(Fm, TunesAndSeeksWaitForComplete) {
  const std::tuple<std::function<int()>, const char*, std::uint32_t> cases[]{
      {[] { return Si468x_FM_tune_freq(98'765); }, "frame 30 00 94 26 00 00 00", 66},
      {Si468x_tune_next_station, "frame 31 00 01 00 00 00", 60},
      {Si468x_tune_previous_station, "frame 31 00 03 00 00 00", 63}};
  const auto complete = frame(0x81, 0xC0);
  const std::string tuned = "Tuned.\n\n", untuned = "Could not tune to frequency\n\n";
  for (const auto& [operation, sent, code] : cases) {
    const std::uint32_t late = code + 100;
    play(complete, operation,
         {{.what = "refused", .after = 1, .then = refused, .result = -2, .code = code},
          {.after = 2, .times = 5, .then = frame(0xC1, 0xC0), .code = 114, .wait_us = 500'000},
          {.after = 2, .times = 100, .then = ready, .code = late, .wait_us = never},
          {.after = 2, .times = 100, .then = arbiter, .result = -1, .code = late, .wait_us = never},
          {"at once"}});
    EXPECT_EQ(happened(), (Lines{sent, "read 7", "read 7"}));
    receive(true);  // the DAB firmware knows nothing of FM
    EXPECT_EQ(with_code(operation()), std::pair(-2, code));
  }
  play(
      complete, [] { return tune_fm_freq(98'500); },
      {{.what = "at once", .wait_us = 500'000, .text = tuned},
       {.after = 2, .times = 100, .then = ready, .code = 166, .wait_us = 10'500'000, .text = tuned},
       {.after = 2,
        .times = 100,
        .then = arbiter,
        .result = -1,
        .code = 166,
        .wait_us = never,
        .text = untuned},
       {.after = 1, .then = refused, .result = -1, .code = 66, .text = untuned}});
}

TEST_F(Fm, ReportsShowEveryBitAndEveryProgrammeType) {
  std::istringstream names(
      "No programme type defined|News|Current affairs|Information|Sport|Education|Drama|Culture|"
      "Science|Varied|Popular Music (Pop)|Rock Music|Easy Listening|Light Classical|Serious "
      "Classical|Other Music|Weather|Finance|Children's Programmes|Social Affairs|Religion|"
      "Phone-in|Travel|Leisure|Jazz Music|Country Music|National Music|Oldies Music|Folk Music|"
      "Documentary|Alarm Test|Alarm");
  // The lines that show bits 7 to 0 of bytes 5 and 6 as 1: letters from a; '-': none.
  const std::string quality_bits = "----abcde-fg--hi", rds_bits = "---ab-cd---ef-gh";
  for (std::uint8_t i = 0; i < 32; ++i) {
    std::string name, quality = "0|0|0|0|0|0|0|0|0|", programme = quality;
    std::getline(names, name, '|');
    const auto byte_7 = std::uint8_t(0xC0 | i | i % 2 << 5);  // traffic programme if odd
    const auto bits = 0x8000U >> i;
    start().by_default(reply({std::uint8_t(bits >> 8U), std::uint8_t(bits), byte_7}));
    if (i < 16 && quality_bits[i] != '-') quality[2 * std::size_t(quality_bits[i] - 'a')] = '1';
    if (i < 16 && rds_bits[i] != '-') programme[2 * std::size_t(rds_bits[i] - 'a')] = '1';
    programme[16] = i % 2 == 0 ? '0' : '1';
    quality += std::to_string(10 * byte_7);
    programme += std::to_string(i) + '|' + name;
    Si468x_FM_rsq_status quality_record;
    Si468x_FM_rds_status rds_record;
    EXPECT_EQ(quality_record.get_status() + rds_record.get_status(), 0);
    EXPECT_EQ(printed([&] { quality_record.print_data(), rds_record.print_data(); }),
              report(rsq, quality) + '\n' + report(rds, programme) + '\n');
  }
}

TEST_F(Fm, RdsIsReportedOnceItsPropertiesReadBack) {
  const auto quality = report(rsq, "0|1|0|1|1|0|1|1|0|415180|253|251|231|225|37428|210|241") + '\n';
  const auto groups =
      report(rds,
             "0|1|1|0|1|0|0|1|1|10|Popular Music (Pop)|54017|142|3|2|1|0|54019|42312|57805|65349") +
      '\n';
  const auto no_groups = report(rds, "0|0|0|0|0|0|0|0|0|0|No programme type defined") + '\n';
  const auto quality_reply =
      reply({0xF5, 0x92, 0x2E, 0xA2, 0xFD, 0xFB, 0xE7, 0xE1, 0x34, 0x92, 0x77, 0xD2, 0xF1});
  const auto groups_reply = reply({0x0A, 0x11, 0xEA, 0x77, 0x01, 0xD3, 0x8E, 0xE4, 0x03, 0xD3, 0x48,
                                   0xA5, 0xCD, 0xE1, 0x45, 0xFF});
  const auto failed = frame(0x80, 0xC1, Bytes(18, 0xFF));
  // The frame that is answered otherwise, result, code, what is printed, and commands sent.
  const std::tuple<std::size_t, Bytes, int, unsigned, std::string, std::size_t> cases[]{
      {1, refused, -2, 18, "", 1},
      {4, reply({0x01, 0x01}), -6, 218, "", 2},
      {6, arbiter, -1, 18, "", 3},
      {9, reply({0x00, 0x38}), -6, 218, "", 4},
      {12, failed, 0, 61, report(rsq, "") + '\n' + groups, 6},
      {15, failed, 0, 62, quality + no_groups, 6},
      {0, ready, 0, 0, quality + groups, 6}};
  for (const auto& [nth, answer, result, code, text, sent] : cases) {
    std::vector<Bytes> answers(16, ready);
    answers[4] = reply({0x01, 0x00}), answers[9] = reply({0x00, 0x39});
    answers[12] = quality_reply, answers[15] = groups_reply;
    answers[nth] = answer;
    start();
    for (const auto& bytes : answers) chip_->answer(bytes);
    std::pair<int, std::uint32_t> outcome;
    EXPECT_EQ(printed([&] { outcome = with_code(get_rds_status()); }), text);
    EXPECT_EQ(outcome, std::pair(result, code));
    EXPECT_EQ(commands().size(), sent);
  }
  EXPECT_EQ(commands(), (Lines{"13 00 02 3c 01 00", "14 01 02 3c", "13 00 00 39 00 39",
                               "14 01 00 39", "32 09", "34 00"}));
  EXPECT_EQ(happened()[12] + happened()[15], "read 23read 21");
}

TEST_F(Fm, RunTunesThenSeeksThenReports) {
  if (geteuid() != 0) GTEST_SKIP() << "a run needs root";
  const std::string tune = "30 00 7a 26 00 00 00", down = "Si468x shut down\n\n";
  // Options, a command that is refused, the commands sent and the end of the output.
  const std::tuple<std::string, std::uint8_t, Lines, std::string> cases[]{
      {"-kxXF98500", 0xFF, {tune, "31 00 01 00 00 00"}, "Tuned.\n\n" + down},
      {"-kXrF98500", 0x30, {tune}, "Could not tune to frequency\n\n"},
      {"-krXF0", 0x13, {"31 00 03 00 00 00", "13 00 02 3c 01 00"}, down}};
  for (const auto& [options, bad, sent, text] : cases) {
    sim::power_on({.faults = {{sim::Fault_kind::command_error, bad}}});
    sim::set_booted(false);
    const auto output = printed([&line = options] { with_arguments(line, run); });
    EXPECT_EQ(behind_notice(output), "SPI bus enabled.\n\n" + text);
    EXPECT_EQ(commands(), sent);
  }
}

}  // namespace
