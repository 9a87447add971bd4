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
  play(ready, set, {{"refused", 1, 1, refused, -2, 20}, {}});
  EXPECT_EQ(commands(), Lines{"b8 02 00 00 50 ab 02 00 20 78 03 00"});
  count = 48;
  play(ready, set);
  ASSERT_EQ(sim::commands().at(0).size(), 196U);
  EXPECT_TRUE(commands()[0].starts_with("b8 30 00 00 50") &&
              commands()[0].ends_with("d4 c3 b2 a1"));
  count = 49;
  play(ready, set, {{"too long", 0, 0, {}, -6, 20}});
  EXPECT_EQ(commands(), Lines{});
}

TEST_F(Dab_tuning, ListIsReadAsLongAsTheChipSays) {
  constexpr unsigned canary = 0xC0FFEE;
  // Claimed length, then the count and the entries that the caller gets, and the last read.
  const std::tuple<std::uint8_t, Script, int, unsigned, const char*> cases[]{
      {41, {}, 41, 41, "read 173"},
      {0, {}, 0, 0, "read 9"},
      {255, {}, 255, 255, "read 1029"},
      {41, {"no count", 1, 1, arbiter, -1, 19}, 0, 0, "read 7"},
      {41, {"no entries", 5, 1, refused, -2, 119}, 41, 0, "read 173"}};
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
    EXPECT_EQ(commands(), Lines(script.code == 19 ? 1 : 2, "b9 00"));
  }
}

TEST_F(Dab_tuning, TuneWaitsForCompleteThroughErrors) {
  play(good, [] { return Si468x_DAB_tune_freq(44); },
       {{"refused", 1, 1, refused, -2, 21},
        {"complete though busy", 2, 1, frame(0x01, 0xC0)},
        {"at the third poll", 2, 2, not_complete, 0, 0, 200 * ms},
        {"errors, then complete", 2, 5, frame(0xC1, 0xC0), 0, 114, 500 * ms},
        {"at the last poll", 2, 99, busy, 0, 0, 9900 * ms},
        {"never", 2, 100, not_complete, 0, 121, 10'000 * ms},
        {"never, with command errors", 2, 100, refused, -2, 121, 10'000 * ms},
        {"never, with arbiter errors", 2, 100, frame(0x81, 0xC2), -1, 121, 10'000 * ms},
        {"never, non-recoverable", 2, 100, frame(0x81, 0xC1), -2, 121, 10'000 * ms}});
  EXPECT_EQ(commands(), Lines{"b0 00 2c 00 00 00"});
  start().answer(ready, 2).answer(arbiter, 99).by_default(not_complete);
  EXPECT_EQ(Si468x_DAB_tune_freq(44), 0);  // only the last poll counts
}

TEST_F(Dab_tuning, FrequencyCommandJudgesByAcquisitionAlone) {
  const auto unacquired = frame(0x81, 0xC0, {0xFF, 0xFB});
  play(good, [] { return tune_freq(33); },
       {{"at the first check", 0, 0, {}, 0, 0, 700 * ms, "Tuned.\n\n"},
        {"tune refused", 1, 1, refused, 0, 21, 700 * ms, "Tuned.\n\n"},
        {"one check fails", 4, 1, refused, 0, 22, 900 * ms, "Tuned.\n\n"},
        {"at the tenth check", 3, 27, unacquired, 0, 0, 2500 * ms, "Tuned.\n\n"},
        {"never", 3, 30, unacquired, -1, 0, 2500 * ms, "Could not tune to frequency\n\n"}});
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
       {{"found", 0, 0, {}, 1, 0, 200 * ms},
        {"FIC quality 29", status, 3, fic_29, 0, 0},
        {"signal not valid", status, 3, invalid, 0, 0},
        {"tune refused", 1, 1, refused, -2, 65},
        {"arbiter error", 1, 1, arbiter, -2, 65},
        {"tune never ready", 1, 50, busy, -3, 65, never_ready},
        {"tune polls with arbiter error", 2, 100, arbiter, -2, 65, 10'000 * ms},
        {"tune never complete", 2, 100, not_complete, 1, 121, 10'200 * ms},
        {"status refused", status + 1, 1, refused, -2, 165},
        {"status with arbiter error", status + 2, 1, arbiter, -2, 165},
        {"status never ready", status + 1, 50, busy, -3, 165, never_ready},
        {"events refused", events + 1, 1, refused, -2, 265},
        {"second poll with arbiter error", events + 5, 1, arbiter, -2, 265, 200 * ms},
        {"events never ready", events + 1, 50, busy, -3, 265, never_ready},
        {"list after two polls", events, 6, invalid, 1, 0, 600 * ms},
        {"list announced and stable", events + 3, 3, no_flag, 1, 0, 200 * ms},
        {"list not announced", events, 150, no_flag, -1, 365, 10'000 * ms},
        {"no list", events, 150, invalid, -1, 365, 10'000 * ms}});
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
