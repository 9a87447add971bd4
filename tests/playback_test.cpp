// SPDX-License-Identifier: GPL-3.0-or-later
//
// Starting a service, and reading and printing a packet of its data.
#include <algorithm>

#include "si468x/service_playback.h"
#include "support.h"

namespace {

using Playback = Board;

TEST_F(Playback, ServiceIsStartedAndStopped) {
  const std::string unheard = "Could not start service\n\n";
  play(ready, [] { return play_station(0x12345678, 0x9ABCDEF0); },
       {{.after = 1, .then = refused, .result = -1, .code = 32, .text = unheard}, {}});
  EXPECT_EQ(commands(), Lines{"81 00 00 00 78 56 34 12 f0 de bc 9a"});
  play(ready, [] { return Si468x_stop_digital_service(2, 17333, 12); },
       {{.what = "refused", .after = 1, .then = refused, .result = -2, .code = 33}, {}});
  EXPECT_EQ(commands(), Lines{"82 02 00 00 b5 43 00 00 0c 00 00 00"});
}

/// A packet that claims `bytes` bytes of payload.
Bytes packet(std::size_t bytes, const Bytes& payload) {
  auto all = reply({0xFD, 0x91, 0xA2, 0x85, 0x78, 0x56, 0x34, 0x92, 0xF0, 0xDE,
                    0xBC, 0x9A, 0x77, 0x77, 0,    0,    0x44, 0xB3, 0x66, 0xD5});
  all[19] = std::uint8_t(bytes), all[20] = std::uint8_t(bytes >> 8);
  all.insert(all.end(), payload.begin(), payload.end());
  return all;
}

constexpr const char* labels =
    "Digital service data ----------------- |Buffer overflow:|Packet ready:|Data remaining in "
    "buffer:|Service state:|Payload source:|Data service component type:|Service ID:|Component "
    "ID:|Payload bytes:|Segment number:|Number of segments:";

TEST_F(Playback, PacketIsReadUnderOneChipSelectWithinItsArray) {
  Si468x_digital_service_data data;
  for (const std::size_t claimed : {3U, 4U, 4975U, 4976U, 32771U, 65535U, 0U}) {
    SCOPED_TRACE(claimed);
    const auto taken = std::min<std::size_t>(claimed, 5000 - 25);
    start().answer({0xEE, 0xEE}).answer(busy).answer(packet(claimed, Bytes(65535, 0xA7)));
    Bytes into(5100, 0x77), expected = packet(claimed, Bytes(taken, 0xA7));
    expected.resize(5100, 0x77);
    EXPECT_EQ(data.get_new_data(into.data()), 0);
    EXPECT_TRUE(into == expected);
    EXPECT_EQ(data.payload, claimed == 0 ? nullptr : into.data() + 25);
    EXPECT_EQ(happened(), (Lines{"frame 84 00", "delay_us 10", "read 2", "delay_us 10",
                                 "read " + std::to_string(25 + taken)}));
    EXPECT_EQ(printed([&] { data.print_data(); }),
              report(labels, "0|1|145|162|2|5|2452903544|2596069104|" + std::to_string(taken) +
                                 "|45892|54630"));
  }
  Bytes into(5000), ones(5000, 0xFF);
  ones[5] = 0xFE;
  start().by_default(ones);  // errors in the status are not looked at
  EXPECT_EQ(data.get_new_data(into.data()), 0);
  EXPECT_EQ(data.overflow + data.data_ready + data.payload_source + data.dscty, 1 + 0 + 3 + 63);
}

TEST_F(Playback, StationTextLeavesOutItsFrame) {
  const std::pair<Bytes, const char*> cases[]{
      {{}, ""},
      {{'a', 'b', 'c'}, ""},
      {{'a', 'b', 'c', 'd'}, "c"},
      {{0, 0, 0x1F, 0x20, 0x7E, 0x7F, 0xFC, 'z'}, "1f  ~7f fc "},
      {{0, 0, 'N', 'o', 'w', '\n', '%', 's', 0}, "Now0a %s"}};
  for (const auto& [payload, text] : cases) {
    play(packet(payload.size(), payload), print_station_text,
         {{.after = 1, .times = 9, .then = busy, .wait_us = 100, .text = text}});
  }
  const std::string failed = "Error getting service data \n\n";
  play(ready, print_station_text,
       {{.after = 1, .times = 10, .then = busy, .code = 34, .wait_us = 110, .text = failed}});
  Lines expected{"frame 84 00", "delay_us 10"};
  for (int i = 0; i < 10; ++i) expected.insert(expected.end(), {"read 2", "delay_us 10"});
  EXPECT_EQ(happened(), expected);
}

}  // namespace
