// SPDX-License-Identifier: GPL-3.0-or-later
//
// The chip's frequency list, tuning, and how a tune is judged.
#include "si468x/dab_tuning.h"

#include <array>
#include <tuple>

#include "support.h"

namespace {

using Dab_tuning = Board;

// One answer that suits every read: tune complete; new service list, which is available, in version
// 0x1B2A; signal valid, ensemble acquired, FIC quality 30.
const Bytes good = frame(0x81, 0xC0, {0x01, 0x05, 0x2A, 0x1B, 30});
// The same before seek/tune complete (STC), and STC with errors.
const Bytes no_stc = frame(0x80, 0xC0, {0x01, 0x05, 0x2A, 0x1B, 30});
const Bytes stc_arbiter = frame(0x81, 0xC2), stc_broken = frame(0x81, 0xC1);

constexpr std::uint64_t ms = 1000;
constexpr std::uint64_t never = 10'000 * ms;  // seek/tune complete, or a service list
constexpr std::uint64_t no_cts = 1'227'500;   // clear to send

TEST_F(Dab_tuning, ListIsWrittenLittleEndianUpToItsLimit) {
  std::array<unsigned, 49> list{174'928, 227'360};
  list[47] = 0xA1B2C3D4;
  unsigned char count = 0;
  const auto set = [&] { return Si468x_DAB_set_freq_list(list.data(), count); };
  play(ready, set);
  EXPECT_EQ(commands(), Lines{"b8 00 00 00"});
  count = 2;
  play(ready, set,
       {{.what = "refused", .after = 1, .then = refused, .result = -2, .code = 20}, {}});
  EXPECT_EQ(commands(), Lines{"b8 02 00 00 50 ab 02 00 20 78 03 00"});
  count = 48;
  play(ready, set);
  ASSERT_EQ(sim::commands().at(0).size(), 196U);
  EXPECT_TRUE(commands()[0].starts_with("b8 30 00 00 50") &&
              commands()[0].ends_with("d4 c3 b2 a1"));
  count = 49;
  play(ready, set, {{.what = "too long", .result = -6, .code = 20}});
  EXPECT_EQ(commands(), Lines{});
}

TEST_F(Dab_tuning, ListIsReadAsLongAsTheChipSays) {
  constexpr unsigned canary = 0xC0FFEE;
  const Script no_count{.after = 1, .then = arbiter, .result = -1, .code = 19};
  const Script no_entries{.after = 5, .then = refused, .result = -2, .code = 119};
  // Claimed length, then the count and the entries that the caller gets, and the last read.
  const std::tuple<std::uint8_t, Script, int, unsigned, const char*> cases[]{
      {41, {}, 41, 41, "read 173"},
      {0, {}, 0, 0, "read 9"},
      {255, {}, 255, 255, "read 1029"},
      {41, no_count, 0, 0, "read 7"},
      {41, no_entries, 41, 0, "read 173"}};
  for (const auto& [claimed, script, known, entries, last_read] : cases) {
    Bytes data{claimed, 0x77, 0x77, 0x77};
    for (unsigned i = 0; i < 255; ++i) data.insert(data.end(), {std::uint8_t(i), 0xC3, 0xB2, 0xA1});
    std::array<unsigned, 256> list{};
    list.fill(canary);
    unsigned char count = 77;
    play(reply(data), [&] { return Si468x_DAB_get_freq_list(list.data(), &count); }, {script});
    EXPECT_EQ(count, known);
    for (unsigned i = 0; i < 256; ++i) EXPECT_EQ(list[i], i < entries ? 0xA1B2C300 + i : canary);
    EXPECT_EQ(happened().back(), last_read);
    EXPECT_TRUE(script.code == 19 || happened()[2] == "read 6");
    EXPECT_EQ(commands(), Lines(script.code == 19 ? 1 : 2, "b9 00"));
  }
}

TEST_F(Dab_tuning, TuneWaitsForCompleteThroughErrors) {
  play(
      good, [] { return Si468x_DAB_tune_freq(44); },
      {{.what = "refused", .after = 1, .then = refused, .result = -2, .code = 21},
       {.what = "complete though busy", .after = 2, .then = frame(0x01, 0xC0)},
       {.after = 2, .times = 2, .then = no_stc, .wait_us = 200 * ms},
       {.after = 2, .times = 5, .then = frame(0xC1, 0xC0), .code = 114, .wait_us = 500 * ms},
       {.what = "at the last poll", .after = 2, .times = 99, .then = busy, .wait_us = 9900 * ms},
       {.after = 2, .times = 100, .then = stc_broken, .result = -2, .code = 121, .wait_us = never},
       {.after = 2, .times = 100, .then = refused, .result = -2, .code = 121, .wait_us = never},
       {.after = 2, .times = 100, .then = stc_arbiter, .result = -1, .code = 121, .wait_us = never},
       {.after = 2, .times = 100, .then = no_stc, .code = 121, .wait_us = never}});
  EXPECT_EQ(commands(), Lines{"b0 00 2c 00 00 00"});
  start().answer(ready, 2).answer(arbiter, 99).by_default(no_stc);
  EXPECT_EQ(Si468x_DAB_tune_freq(44), 0);  // only the last poll counts
}

TEST_F(Dab_tuning, FrequencyCommandJudgesByAcquisitionAlone) {
  const auto unacquired = frame(0x81, 0xC0, {0xFF, 0xFB});
  play(good, [] { return tune_freq(33); },
       {{.what = "at the first check", .wait_us = 700 * ms, .text = "Tuned.\n\n"},
        {.after = 1, .then = refused, .code = 21, .wait_us = 700 * ms, .text = "Tuned.\n\n"},
        {.after = 4, .then = refused, .code = 22, .wait_us = 900 * ms, .text = "Tuned.\n\n"},
        {.after = 3, .times = 27, .then = unacquired, .wait_us = 2500 * ms, .text = "Tuned.\n\n"},
        {.after = 3,
         .times = 30,
         .then = unacquired,
         .result = -1,
         .wait_us = 2500 * ms,
         .text = "Could not tune to frequency\n\n"}});
  play(refused, [] { return Si468x_DAB_tune_and_acquire(33); },
       {{.what = "never", .result = -2, .code = 22, .wait_us = 2500 * ms}});
}

TEST_F(Dab_tuning, ScanJudgesSignalThenServiceList) {
  // Frames 0 to 2 are the tune command with two reads, 3 to 5 the status, and so each event poll.
  const auto fic_29 = frame(0x81, 0xC0, {0x01, 0x05, 0x2A, 0x1B, 29});
  const auto invalid = frame(0x81, 0xC0, {0x01, 0xFE, 0x2A, 0x1B, 30});
  const auto no_flag = frame(0x81, 0xC0, {0xFE, 0x05, 0x2A, 0x1B, 30});
  Si468x_DAB_digrad_status record;
  const auto tune = [&] { return Si468x_DAB_tune_freq_save(17, record); };
  play(good, tune,
       {{.what = "found", .result = 1, .wait_us = 200 * ms},
        {.what = "FIC quality 29", .after = 3, .times = 3, .then = fic_29},
        {.what = "signal not valid", .after = 3, .times = 3, .then = invalid},
        {.what = "tune refused", .after = 1, .then = refused, .result = -2, .code = 65},
        {.what = "arbiter error", .after = 1, .then = arbiter, .result = -2, .code = 65},
        {.after = 1, .times = 50, .then = busy, .result = -3, .code = 65, .wait_us = no_cts},
        {.after = 2, .times = 100, .then = arbiter, .result = -2, .code = 65, .wait_us = never},
        {.after = 2, .times = 100, .then = no_stc, .result = 1, .code = 121, .wait_us = 10'200'000},
        {.what = "status refused", .after = 4, .then = refused, .result = -2, .code = 165},
        {.after = 5, .then = arbiter, .result = -2, .code = 165},
        {.after = 4, .times = 50, .then = busy, .result = -3, .code = 165, .wait_us = no_cts},
        {.what = "events refused", .after = 7, .then = refused, .result = -2, .code = 265},
        {.after = 11, .then = arbiter, .result = -2, .code = 265, .wait_us = 200 * ms},
        {.after = 7, .times = 50, .then = busy, .result = -3, .code = 265, .wait_us = no_cts},
        {.after = 6, .times = 6, .then = invalid, .result = 1, .wait_us = 600 * ms},
        {.after = 9, .times = 3, .then = no_flag, .result = 1, .wait_us = 200 * ms},
        {.after = 6, .times = 150, .then = no_flag, .result = -1, .code = 365, .wait_us = never},
        {.after = 6, .times = 150, .then = invalid, .result = -1, .code = 365, .wait_us = never}});
  EXPECT_EQ(commands().size(), 52U);
  EXPECT_EQ(commands().back(), "b3 01");
  start().answer(good, 6);
  for (std::uint8_t version = 0; version < 50; ++version) {
    chip_->answer(frame(0x81, 0xC0, {0x01, 0x01, 0x00, version}), 3);
  }
  EXPECT_EQ(with_code(tune()), std::pair(-1, 365U));
  EXPECT_EQ(record.FIC_quality, 30);
}

}  // namespace
