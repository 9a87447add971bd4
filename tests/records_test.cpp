// SPDX-License-Identifier: GPL-3.0-or-later
//
// The status records: every field from its own place, every report to the byte.
#include <array>
#include <functional>
#include <map>
#include <tuple>

#include "si468x/chip_info.h"
#include "si468x/dab_status.h"
#include "si468x/ensemble_time.h"
#include "si468x/fm_rds.h"
#include "si468x/fm_tuning.h"
#include "si468x/service_playback.h"
#include "support.h"

namespace {

using Records = Board;

/// What each command prints: the header, then the labels or keys.
const std::map<int (*)(), const char*> layouts{
    {print_chip_info,
     "Chip info ---------------------------- |Clear to send:|Command error:|Digital radio link "
     "change interrupt:|Data component interrupt:|Seek/Tune complete:|Digital radio event change "
     "interrupt:|Powerup state:|DSP frame overrun:|Data dropped during read reply:|Dropped data "
     "during command write:|Arbiter error:|Non-recoverable error:|Chip Mask Revision:|ROM ID:|Part "
     "Number:|Firmware image running the sysstate CMD:|Revision number:|No SVN info:|Mixed "
     "revisions:|Local modifications:|Build location:|SVN ID:"},
    {print_digrad_status,
     "Digrad status ------------------------ |Audio was muted:|FIC errors encountered:|Ensemble "
     "acquisition state changed:|below RSSI thresh:|above RSSI thresh:|hardmute:|FIC errors:|"
     "Ensemble acquired:|RSSI valid:|RSSI:|SNR:|FIC quality:|CNR:|FIB error count:|Tune "
     "Freq.:|Tune "
     "index:|FFT offset:|Antenna tuning cap value:|CU level:|Metric for DAB fast detect:"},
    {print_digrad_status_json,
     "\"DigradStatus\": {|hardmuteINT|FICerrINT|acqINT|rssihINT|rssilINT|hardmute|FICerr|acq|valid|"
     "rssi|snr|FIC_quality|cnr|FIB_error_count|tune_freq|tune_index|fft_offset|readAntCap|cu_level|"
     "fast_dect"},
    {print_event_status,
     "Event status ------------------------- |Ensemble reconfig event:|Ensemble reconfig warning:|"
     "New announcement info available|New freq. info available:|New service list available:|Freq. "
     "Info available:|Service list available:|Service list version:"}};

// Bytes 5 to 23 all different; RSSI, SNR and offset would be negative as signed bytes.
const Bytes digrad_reply = reply({0x0A, 0x05, 0xF6, 0xE7, 0xE1, 0xF7, 0xFE, 0xCA, 0x50, 0xAB, 0x02,
                                  0x91, 0xC1, 0xF9, 0x34, 0x92, 0x78, 0xD6, 0xDF});
const Bytes ones = frame(0x80, 0xC0, Bytes(19, 0xFF));
const Bytes dead(24, 0xFF);

TEST_F(Records, ReportsAreExactAndShowZerosForAFailedRead) {
  const std::tuple<int (*)(), Bytes, std::string, std::uint32_t> cases[]{
      {print_digrad_status, digrad_reply,
       "0|1|0|0|1|0|0|1|1|246|231|225|247|51966|2432871248|193|249|37428|54904|223", 0},
      {print_digrad_status_json, digrad_reply,
       "0|1|0|1|0|0|0|1|1|246|231|225|247|51966|-1862096048|193|249|37428|54904|223", 0},
      {print_event_status, reply({0xCB, 0xFE, 0x34, 0x12}), "1|1|1|1|1|1|0|4660", 0},
      {print_event_status, ones, "1|1|1|1|1|1|1|65535", 0},
      // Without SVN information its location and id stay 0.
      {print_chip_info, ones, "1|0|0|0|0|0|3|0|0|0|0|0|255|255|65535|unknown|255.255.255|1|1|1|0|0",
       0},
      // A dead line: the status is shown as it is, everything else is refused.
      {print_chip_info, dead, "1|1|1|1|1|1|3|1|1|1|1|1|0|0|0|Bootloader|0.0.0", 13},
      {print_chip_info, {}, "0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|Bootloader|0.0.0", 13},
      {print_digrad_status, dead, "", 22},
      {print_digrad_status_json, arbiter, "", 22},
      {print_event_status, broken, "", 24}};
  for (const auto& [command, answer, values, code] : cases) {
    start().by_default(answer);
    EXPECT_EQ(printed([&run = command] { EXPECT_EQ(run(), 0); }),
              report(layouts.at(command), values));
    EXPECT_EQ(Si468x_ErrorCode, code);
  }
}

TEST_F(Records, ChipInfoIsReadInFourSteps) {
  start().answer({0x5A, 0xB1, 0x20, 0x00, 0xD0}).by_default(ready);
  for (const auto& data : std::vector<Bytes>{{0x02, 0x04, 0x11, 0x22, 0x50, 0x12},  // part 4688
                                             {0x02, 0x77},
                                             {0x05, 0x00, 0x06, 0x22, 0xDF, 0x9B, 0xD0, 0xEF}}) {
    chip_->answer(ready, 2).answer(reply(data));
  }
  EXPECT_EQ(printed(print_chip_info),
            report(layouts.at(print_chip_info),
                   "1|0|1|1|1|1|3|1|0|0|0|0|2|4|4688|DAB|5.0.6|0|1|0|2|4023426015"));
  EXPECT_EQ(happened(), (Lines{"read 7", "frame 08 00", "read 7", "read 24", "frame 09 00",
                               "read 7", "read 7", "frame 12 00", "read 7", "read 13"}));
  std::istringstream names(
      "Bootloader|FMHD|DAB|TDMB or data only DAB|FMHD Demod|AMHD|AMHD Demod|"
      "DAB Demod|unknown");
  // What bits 0 to 7 of the revision's flags show: each alone, then none.
  const char* const flags[]{"0|0|1", "0|1", "", "", "0|0|0|1", "0|0|0|2", "", "1", ""};
  std::string name;
  for (std::uint8_t i = 0; std::getline(names, name, '|'); ++i) {
    start().by_default(reply({i, 0, 0, std::uint8_t(1U << i)}));
    const auto n = std::to_string(i);
    EXPECT_EQ(printed(print_chip_info),
              report(layouts.at(print_chip_info), "1|0|0|0|0|0|3|0|0|0|0|0|" + n + "|0|0|" + name +
                                                      '|' + n + ".0.0|" + flags[i]));
  }
}

TEST_F(Records, FailedReadKeepsTheRecord) {
  Si468x_DAB_digrad_status tuned;
  Si468x_DAB_event_status event;
  Si468x_chip_info info;
  Si468x_FM_rsq_status quality;
  Si468x_FM_rds_status groups;
  const std::tuple<std::function<int()>, std::uint32_t, const char*> reads[]{
      {[&] { return tuned.get_new_status(); }, 22, "read 24"},
      {[&] { return event.get_new_status(); }, 24, "read 9"},
      {[&] { return info.get_part_info(); }, 21, "read 24"},
      {[&] { return info.get_sys_state(); }, 12, "read 7"},
      {[&] { return info.get_func_info(); }, 13, "read 13"},
      {[&] { return quality.get_status(); }, 61, "read 23"},
      {[&] { return groups.get_status(); }, 62, "read 21"}};
  const auto print = [&] {
    tuned.print_data(), event.print_data(), info.print_data();
    quality.print_data(), groups.print_data();
  };
  for (const auto& [read, code, last] : reads) {
    play(digrad_reply, read);
    EXPECT_EQ(happened().back(), last);
  }
  const auto before = printed(print);
  for (const auto& [read, code, last] : reads) {
    play(ones, read,
         {{.after = 1, .times = 50, .then = busy, .result = -3, .code = code, .wait_us = 1'227'500},
          {.what = "refused", .after = 2, .then = dead, .result = -2, .code = code},
          {.after = 2, .then = frame(0x80, 0xC2, Bytes(19, 0xFF)), .result = -1, .code = code}});
  }
  EXPECT_EQ(printed(print), before);
}

TEST_F(Records, PrintingAlwaysSucceeds) {
  std::stringstream out;
  const auto print = [](auto record) { return record.print_data(); };
  const auto results = [&] {
    return std::array<int, 9>{print(Si468x_chip_info()),
                              print(Si468x_DAB_digrad_status()),
                              print(Si468x_DAB_event_status()),
                              print(Si468x_time()),
                              print(Si468x_FM_rsq_status()),
                              print(Si468x_FM_rds_status()),
                              print(Si468x_digital_service_data()),
                              Si468x_DAB_digrad_status().json_print_data(out),
                              Si468x_time().json_print_data(out)};
  };
  EXPECT_NE(printed([&] { EXPECT_EQ(results(), (std::array<int, 9>{})); }), "");
}

TEST_F(Records, EveryBitHasItsOwnField) {
  // Command, byte, and the lines that show its bits 7 to 0 as 1: letters from a; '-': none.
  const std::tuple<int (*)(), std::size_t, std::string> cases[]{
      {print_chip_info, 1, "abcd---e"},     {print_chip_info, 2, "--f-----"},
      {print_chip_info, 3, "--------"},     {print_chip_info, 4, "?g-hijkl"},
      {print_digrad_status, 5, "---abced"}, {print_digrad_status_json, 5, "---abcde"},
      {print_digrad_status, 6, "---fgh-i"}, {print_event_status, 5, "ab--c-de"},
      {print_event_status, 6, "------fg"}};
  for (const auto& [command, byte, lines] : cases) {
    for (std::size_t bit = 0; bit < 8; ++bit) {
      auto answer = byte < 5 ? Bytes(5) : reply({0, 0});
      answer[byte] = static_cast<std::uint8_t>(0x80U >> bit);
      start().by_default(answer);
      std::string values = "0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0";
      if (command == print_chip_info) values.replace(30, 3, "Bootloader|0.0.0");
      if (lines[bit] >= 'a') values[2 * static_cast<std::size_t>(lines[bit] - 'a')] = '1';
      if (lines[bit] == '?') values[12] = '2';  // the power-up state has bits 7 and 6
      EXPECT_EQ(printed(command), report(layouts.at(command), values))
          << "byte " << byte << " bit " << 7 - bit;
    }
  }
}

}  // namespace
