// SPDX-License-Identifier: GPL-3.0-or-later
//
// Commands and replies, and the properties that are written and read with them.
#include <algorithm>
#include <tuple>

#include "si468x/boot.h"
#include "si468x/properties.h"
#include "support.h"

namespace {

using Protocol = Board;
using Properties = Board;

const std::uint32_t code_at_start = Si468x_ErrorCode;  // before any test

TEST_F(Protocol, CommandIsSentWaitedForAndItsReplyRead) {
  Bytes command, into;
  std::uint16_t reply_len = 0;
  const auto send = [&] {
    command = {0xB2, 0x07}, into = Bytes(9, 0x77);
    return Si468x_send_cmd(command.data(), into.data(), 2, reply_len);
  };
  play(ready, send,
       {{.what = "late", .after = 1, .times = 2, .then = busy, .wait_us = 50 + 1050},
        {.what = "at the last look", .after = 1, .times = 49, .then = busy, .wait_us = 1'178'450},
        {.after = 1, .times = 50, .then = busy, .result = -3, .code = 160, .wait_us = 1'227'500},
        {.what = "at once", .then = {0xEE, 0xED}}});
  EXPECT_EQ(command, (Bytes{0xEE, 0xED}));  // the transfer is in place
  EXPECT_EQ(into, Bytes(9, 0x77));
  EXPECT_EQ(happened(), (Lines{"frame b2 07", "read 7"}));
  reply_len = 9;
  play(ready, send, {{.what = "refused", .after = 1, .then = refused, .result = -2, .code = 260}});
  EXPECT_EQ(happened(), (Lines{"frame b2 07", "read 7"}));
  play(ready, send, {{.what = "with a reply", .after = 2, .then = reply({1, 2, 3, 4})}});
  EXPECT_EQ(into, reply({1, 2, 3, 4}));
  EXPECT_EQ(happened(), (Lines{"frame b2 07", "read 7", "read 9"}));
  reply_len = 3;  // what comes after it in the array is no status
  play(ready, send, {{.what = "with a short reply"}});
  const auto send_without_buffer = [&] { return Si468x_send_cmd(command.data(), nullptr, 2, 7); };
  play(ready, send_without_buffer, {{.what = "no buffer", .result = -6, .code = 360}});
  EXPECT_EQ(happened().size(), 2U);
}

TEST_F(Protocol, StatusIsJudgedTheSameWayEverywhere) {
  const struct {
    std::uint8_t status_0, status_3;
    int result;
    std::uint32_t check_code;
  } cases[]{{0x80, 0xC0, 0, 0},    {0xB1, 0xF0, 0, 0},     // interrupts, frame overrun
            {0xC0, 0xC0, -2, 58},  {0xC0, 0xCF, -2, 58},   // command error, judged first
            {0x80, 0xC8, -1, 158}, {0x80, 0x84, -1, 158},  // dropped on read, on write
            {0x80, 0x02, -1, 158}, {0x80, 0xCF, -1, 158},  // arbiter error, judged before
            {0x80, 0xC1, -2, 258}};                        // a non-recoverable error
  for (const auto& [status_0, status_3, result, check_code] : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << +status_0 << ' ' << +status_3);
    const auto status = frame(status_0, status_3);
    const std::uint32_t failed = result == 0 ? 0 : 1;
    Bytes into(9, 0x77), data{1, 2, 3}, sent{0x09};
    play(
        ready, [&] { return Si468x_send_cmd(sent.data(), nullptr, 1, 0); },
        {{.what = "with CTS", .after = 1, .then = status, .result = result, .code = 260 * failed}});
    play(ready, [&] { return Si468x_send_cmd(sent.data(), into.data(), 1, 9); },
         {{.after = 2, .then = status, .result = result, .code = 560 * failed}});
    EXPECT_EQ(into, frame(status_0, status_3, {0, 0, 0, 0}));  // as it was read
    play(ready, [&] { return Si468x_rd_reply(into.data()); },
         {{.what = "bare read", .then = status, .result = result, .code = 114 * failed}});
    play(ready, [&] { return Si468x_check_status_bits(into.data()); },
         {{.what = "frame read before", .result = result, .code = check_code}});
    play(ready, [&] { return Si468x_load_firmware_datapackage(data.data(), 0x10002); },
         {{.after = 1, .then = status, .result = result, .code = 260 * failed}});
    EXPECT_EQ(data, (Bytes{0xC0, 0, 3}));
  }
}

TEST_F(Protocol, BareTransfersJudgeNothing) {
  EXPECT_EQ(code_at_start, 0U);
  start().answer(busy).answer(refused).answer({0xEE, 0xED});
  Bytes into(8, 0x77), command{0x84, 0x01};
  EXPECT_EQ(Si468x_rd_reply(into.data()), 0);  // clear to send is the caller's matter
  EXPECT_EQ(into, (Bytes{0x5A, 0, 0, 0, 0xC0, 0, 0, 0x77}));
  EXPECT_EQ(Si468x_read_reply(into.data(), 6), 0);
  EXPECT_EQ(into, (Bytes{0x5A, 0xC0, 0, 0, 0xC0, 0, 0, 0x77}));
  EXPECT_EQ(Si468x_send_cmd_simple(command.data(), 2), 0);
  EXPECT_EQ(command, (Bytes{0xEE, 0xED}));
  EXPECT_EQ(happened(), (Lines{"read 7", "read 6", "frame 84 01"}));
  EXPECT_EQ(Si468x_ErrorCode, 0U);
}

TEST_F(Protocol, BytesAreClearedCopiedAndPrinted) {
  Bytes bytes{1, 2, 3, 4, 5}, two{0x0A, 0xFF};
  Si468x_byte_array_copy(bytes.data() + 1, bytes.data(), 3);  // overlapping from above
  EXPECT_EQ(bytes, (Bytes{1, 1, 2, 3, 5}));
  Si468x_clear_array(bytes.data() + 1, 2);
  EXPECT_EQ(bytes, (Bytes{1, 0, 0, 3, 5}));
  char label[] = "x%d";
  EXPECT_EQ(printed([&] { Si468x_hex_print(two.data(), 2, label); }), "x%d0a ff \n");
  EXPECT_EQ(printed([&] { Si468x_hex_print(two.data(), 0, label); }), "x%d\n");
  EXPECT_EQ(Si468x_min(-2, 1) + Si468x_min(3, -32768), -32770);
}

TEST_F(Properties, AreWrittenAndReadBack) {
  std::uint16_t property[]{0x1234, 0xABCD};
  const auto get = [&] { return Si468x_get_property(property); };
  play(reply({0xCD, 0xAB}), [&] { return Si468x_set_property(property); },
       {{.what = "write refused", .after = 1, .then = refused, .result = -2, .code = 18},
        {.what = "read refused", .after = 3, .then = refused, .result = -2, .code = 118},
        {.what = "error in the reply", .after = 4, .then = arbiter, .result = -1, .code = 118},
        {.after = 4, .then = reply({0xCC, 0xAB}), .result = -6, .code = 218},
        {.after = 4, .then = reply({0xCD, 0x2B}), .result = -6, .code = 218},
        {}});
  EXPECT_EQ(happened(),
            (Lines{"frame 13 00 34 12 cd ab", "read 7", "frame 14 01 34 12", "read 7", "read 7"}));
  play(reply({0x3F, 0x01}), get);
  EXPECT_EQ(happened(), (Lines{"frame 14 01 34 12", "read 7", "read 7"}));
  play(reply({0x77, 0x77}), get,
       {{.what = "not read", .after = 1, .then = broken, .result = -2, .code = 17}});
  EXPECT_EQ(property[1], 0x013F);
}

TEST_F(Properties, VolumeIsCheckedAnnouncedAndSet) {
  const char* const illegal =
      "Illegal value for volume. Volume must be an integer between 0 and 63\n\n";
  // What reads back is not looked at.
  const std::tuple<unsigned, Script, Lines> cases[]{
      {0, {.text = "Setting volume to 0\n\n"}, {"13 00 00 03 00 00", "14 01 00 03"}},
      {63,
       {.after = 1, .then = refused, .code = 18, .text = "Setting volume to 63\n\n"},
       {"13 00 00 03 3f 00"}},
      {64, {.text = illegal}, {}},
      {4'294'967'295, {.text = illegal}, {}}};
  for (const auto& row : cases) {
    play(ready, [&] { return set_volume(std::get<0>(row)); }, {std::get<1>(row)});
    EXPECT_EQ(commands(), std::get<2>(row));
  }
  play(reply({63, 0}), [] { return set_properties_volume(200); });
  EXPECT_EQ(commands(), (Lines{"13 00 00 03 3f 00", "14 01 00 03"}));
}

TEST_F(Properties, AudioOutputStopsAtTheFirstPropertyThatFails) {
  for (const int enable : {0, 1, 127}) {
    const std::uint8_t output = enable == 0 ? 1 : 2;
    const std::vector<Bytes> values{{0x00, 0x80}, {output, 0x00}, {0x00, 0x10}};
    Lines sent{"13 00 00 02 00 80", "14 01 00 02",       "13 00 00 08 02 00",
               "14 01 00 08",       "13 00 02 02 00 10", "14 01 02 02"};
    sent[2].replace(13, 1, std::to_string(output));
    for (const int good : {0, 1, 2, 3}) {
      for (const auto operation : {set_properties_output, set_options_i2s}) {
        start().by_default(refused);
        for (int i = 0; i < good; ++i) chip_->answer(reply(values.at(std::size_t(i))), 5);
        EXPECT_EQ(operation(static_cast<unsigned char>(enable)),
                  good == 3 || operation == set_options_i2s ? 0 : -1);
        // One that is refused is not read back; set_options_i2s goes on to the next.
        Lines expected(sent.begin(), sent.begin() + 2 * good);
        for (int i = good; i < (operation == set_options_i2s ? 3 : std::min(good + 1, 3)); ++i) {
          expected.push_back(sent.at(2 * std::size_t(i)));
        }
        EXPECT_EQ(commands(), expected);
      }
    }
  }
}

}  // namespace
