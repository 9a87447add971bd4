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
const Bytes not_complete = frame(0x80, 0xC0, {0x01, 0x05, 0x2A, 0x1B, 30});

constexpr std::uint64_t ms = 1000;

TEST_F(Dab_tuning, ListIsWrittenLittleEndianUpToItsLimit) {
  std::array<unsigned, 49> list{174'928, 227'360};
  list[47] = 0xA1B2C3D4;
  unsigned char count = 0;
  const auto set = [&] { return Si468x_DAB_set_freq_list(list.data(), count); };
  play(ready, set);
  EXPECT_EQ(commands(), Lines{"b8 00 00 00"});
  count = 2;
  play(ready, set,
       {{"refused", {.after = 1, .times = 1, .then = refused}, {.result = -2, .code = 20}}, {}});
  EXPECT_EQ(commands(), Lines{"b8 02 00 00 50 ab 02 00 20 78 03 00"});
  count = 48;
  play(ready, set);
  ASSERT_EQ(sim::commands().at(0).size(), 196U);
  EXPECT_TRUE(commands()[0].starts_with("b8 30 00 00 50") &&
              commands()[0].ends_with("d4 c3 b2 a1"));
  count = 49;
  play(ready, set, {{"too long", {}, {.result = -6, .code = 20}}});
  EXPECT_EQ(commands(), Lines{});
}

TEST_F(Dab_tuning, ListIsReadAsLongAsTheChipSays) {
  constexpr unsigned canary = 0xC0FFEE;
  // Claimed length, then the count and the entries that the caller gets, and the last read.
  const std::tuple<std::uint8_t, Script, int, unsigned, const char*> cases[]{
      {41, {}, 41, 41, "read 173"},
      {0, {}, 0, 0, "read 9"},
      {255, {}, 255, 255, "read 1029"},
      {41,
       {"no count", {.after = 1, .times = 1, .then = arbiter}, {.result = -1, .code = 19}},
       0,
       0,
       "read 7"},
      {41,
       {"no entries", {.after = 5, .times = 1, .then = refused}, {.result = -2, .code = 119}},
       41,
       0,
       "read 173"}};
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
    EXPECT_EQ(commands(), Lines(script.expected.code == 19 ? 1 : 2, "b9 00"));
  }
}

TEST_F(Dab_tuning, TuneWaitsForCompleteThroughErrors) {
  play(good, [] { return Si468x_DAB_tune_freq(44); },
       {{"refused", {.after = 1, .times = 1, .then = refused}, {.result = -2, .code = 21}},
        {"complete though busy", {.after = 2, .times = 1, .then = frame(0x01, 0xC0)}},
        {"at the third poll",
         {.after = 2, .times = 2, .then = not_complete},
         {.waited_us = 200 * ms}},
        {"errors, then complete",
         {.after = 2, .times = 5, .then = frame(0xC1, 0xC0)},
         {.code = 114, .waited_us = 500 * ms}},
        {"at the last poll", {.after = 2, .times = 99, .then = busy}, {.waited_us = 9900 * ms}},
        {"never",
         {.after = 2, .times = 100, .then = not_complete},
         {.code = 121, .waited_us = 10'000 * ms}},
        {"never, with command errors",
         {.after = 2, .times = 100, .then = refused},
         {.result = -2, .code = 121, .waited_us = 10'000 * ms}},
        {"never, with arbiter errors",
         {.after = 2, .times = 100, .then = frame(0x81, 0xC2)},
         {.result = -1, .code = 121, .waited_us = 10'000 * ms}},
        {"never, non-recoverable",
         {.after = 2, .times = 100, .then = frame(0x81, 0xC1)},
         {.result = -2, .code = 121, .waited_us = 10'000 * ms}}});
  EXPECT_EQ(commands(), Lines{"b0 00 2c 00 00 00"});
  start().answer(ready, 2).answer(arbiter, 99).by_default(not_complete);
  EXPECT_EQ(Si468x_DAB_tune_freq(44), 0);  // only the last poll counts
}

TEST_F(Dab_tuning, FrequencyCommandJudgesByAcquisitionAlone) {
  const auto unacquired = frame(0x81, 0xC0, {0xFF, 0xFB});
  play(good, [] { return tune_freq(33); },
       {{"at the first check", {}, {.waited_us = 700 * ms, .text = "Tuned.\n\n"}},
        {"tune refused",
         {.after = 1, .times = 1, .then = refused},
         {.code = 21, .waited_us = 700 * ms, .text = "Tuned.\n\n"}},
        {"one check fails",
         {.after = 4, .times = 1, .then = refused},
         {.code = 22, .waited_us = 900 * ms, .text = "Tuned.\n\n"}},
        {"at the tenth check",
         {.after = 3, .times = 27, .then = unacquired},
         {.waited_us = 2500 * ms, .text = "Tuned.\n\n"}},
        {"never",
         {.after = 3, .times = 30, .then = unacquired},
         {.result = -1, .waited_us = 2500 * ms, .text = "Could not tune to frequency\n\n"}}});
}

TEST_F(Dab_tuning, ScanJudgesSignalThenServiceList) {
  // Frames: the tune command with two reads, the status with two reads, and so each event poll.
  constexpr std::size_t status = 3, events = status + 3;
  constexpr std::uint64_t never_ready = 1'227'500;
  const auto fic_29 = frame(0x81, 0xC0, {0x01, 0x05, 0x2A, 0x1B, 29});
  const auto invalid = frame(0x81, 0xC0, {0x01, 0xFE, 0x2A, 0x1B, 30});
  const auto no_flag = frame(0x81, 0xC0, {0xFE, 0x05, 0x2A, 0x1B, 30});
  Si468x_DAB_digrad_status record;
  const auto tune = [&] { return Si468x_DAB_tune_freq_save(17, record); };
  play(good, tune,
       {{"found", {}, {.result = 1, .waited_us = 200 * ms}},
        {"FIC quality 29", {.after = status, .times = 3, .then = fic_29}},
        {"signal not valid", {.after = status, .times = 3, .then = invalid}},
        {"tune refused", {.after = 1, .times = 1, .then = refused}, {.result = -2, .code = 65}},
        {"arbiter error", {.after = 1, .times = 1, .then = arbiter}, {.result = -2, .code = 65}},
        {"tune never ready",
         {.after = 1, .times = 50, .then = busy},
         {.result = -3, .code = 65, .waited_us = never_ready}},
        {"tune polls with arbiter error",
         {.after = 2, .times = 100, .then = arbiter},
         {.result = -2, .code = 65, .waited_us = 10'000 * ms}},
        {"tune never complete",
         {.after = 2, .times = 100, .then = not_complete},
         {.result = 1, .code = 121, .waited_us = 10'200 * ms}},
        {"status refused",
         {.after = status + 1, .times = 1, .then = refused},
         {.result = -2, .code = 165}},
        {"status with arbiter error",
         {.after = status + 2, .times = 1, .then = arbiter},
         {.result = -2, .code = 165}},
        {"status never ready",
         {.after = status + 1, .times = 50, .then = busy},
         {.result = -3, .code = 165, .waited_us = never_ready}},
        {"events refused",
         {.after = events + 1, .times = 1, .then = refused},
         {.result = -2, .code = 265}},
        {"second poll with arbiter error",
         {.after = events + 5, .times = 1, .then = arbiter},
         {.result = -2, .code = 265, .waited_us = 200 * ms}},
        {"events never ready",
         {.after = events + 1, .times = 50, .then = busy},
         {.result = -3, .code = 265, .waited_us = never_ready}},
        {"list after two polls",
         {.after = events, .times = 6, .then = invalid},
         {.result = 1, .waited_us = 600 * ms}},
        {"list announced and stable",
         {.after = events + 3, .times = 3, .then = no_flag},
         {.result = 1, .waited_us = 200 * ms}},
        {"list not announced",
         {.after = events, .times = 150, .then = no_flag},
         {.result = -1, .code = 365, .waited_us = 10'000 * ms}},
        {"no list",
         {.after = events, .times = 150, .then = invalid},
         {.result = -1, .code = 365, .waited_us = 10'000 * ms}}});
  EXPECT_EQ(commands().size(), 52U);
  EXPECT_EQ(commands().back(), "b3 01");
  start().answer(good, events);
  for (std::uint8_t version = 0; version < 50; ++version) {
    chip_->answer(frame(0x81, 0xC0, {0x01, 0x01, 0x00, version}), 3);
  }
  EXPECT_EQ(with_code(tune()), std::pair(-1, 365U));
  EXPECT_EQ(record.FIC_quality, 30);
}

}  // namespace
