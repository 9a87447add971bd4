// SPDX-License-Identifier: GPL-3.0-or-later
//
// The simulated board by itself, through the bcm2835 functions that programs call: what the other
// tests rely on, no driver involved.
#include <bcm2835.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <tuple>

#include "directory.h"
#include "sim/board.h"
#include "sim/receiver_state.h"

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

/// One whole frame; the bytes received.
Bytes frame(Bytes bytes) {
  bcm2835_spi_transfern(reinterpret_cast<char*>(bytes.data()),
                        static_cast<std::uint32_t>(bytes.size()));
  return bytes;
}

/// A command, the time that it takes, and a read of `length` bytes.
Bytes ask(const Bytes& command, std::size_t length = 5) {
  frame(command);
  sim::pass_time(2ms);
  return frame(Bytes(length));
}

void start(const sim::Settings& settings = {}) {
  sim::power_on(settings);
  ASSERT_EQ(bcm2835_init(), 1);
  bcm2835_gpio_fsel(23, BCM2835_GPIO_FSEL_OUTP);
  ASSERT_EQ(bcm2835_spi_begin(), 1);
  bcm2835_spi_setClockDivider(BCM2835_SPI_CLOCK_DIVIDER_32);
}

void start_booted(bool dab, const std::vector<sim::Fault>& faults = {}) {
  start({.faults = faults});
  sim::set_booted(dab);
}

TEST(SimulatedBoard, StopsItsClockWhileTheReceiveFifoIsFull) {
  start_booted(true);
  volatile std::uint32_t* const cs = bcm2835_spi0 + BCM2835_SPI0_CS / 4;
  volatile std::uint32_t* const fifo = bcm2835_spi0 + BCM2835_SPI0_FIFO / 4;
  bcm2835_peri_set_bits(cs, 0xB0, 0xB0);  // clear both FIFOs, transfer active
  int sent = 0;
  for (; (bcm2835_peri_read(cs) & BCM2835_SPI0_CS_TXD) != 0; ++sent) bcm2835_peri_write(fifo, 0);
  EXPECT_EQ(sent, 64 + 64);  // 64 received, and 64 that wait for room
  EXPECT_EQ(bcm2835_peri_read(cs) & BCM2835_SPI0_CS_DONE, 0U);
  Bytes received;
  while ((bcm2835_peri_read(cs) & BCM2835_SPI0_CS_RXD) != 0) {
    received.push_back(static_cast<std::uint8_t>(bcm2835_peri_read(fifo)));
  }
  EXPECT_NE(bcm2835_peri_read(cs) & BCM2835_SPI0_CS_DONE, 0U);
  bcm2835_peri_set_bits(cs, 0, BCM2835_SPI0_CS_TA);
  EXPECT_EQ(received.size(), 128U);
  EXPECT_EQ(received[4], 0xC0);  // STATUS3: firmware runs
  EXPECT_EQ(sim::events().back().received, received);
  EXPECT_EQ(sim::violations().size(), 0U);
  bcm2835_spi_end();
  EXPECT_EQ(frame({0, 0, 0, 0, 0}), Bytes(5));  // no SPI pins: nobody hears
  EXPECT_EQ(sim::violations().size(), 1U);
}

TEST(SimulatedReceiver, BootsOnlyFromAWholePatchAndAWholeImage) {
  const struct {
    std::size_t patch, image;
    std::uint8_t status_0, status_3, running;  // running: what GET_SYS_STATE reports
  } rows[] = {{5796, 521448, 0x80, 0xC0, 2},
              {5796, 530180, 0x80, 0xC0, 1},
              {5795, 521448, 0xC0, 0x80, 0},
              {5796, 521447, 0xC0, 0x80, 0}};
  for (const auto& row : rows) {
    start();
    bcm2835_gpio_write(23, HIGH);
    ask({0x01, 0, 0x1F, 0x7F, 0, 0xF8, 0x24, 1, 0x20, 0x10, 0, 0, 0, 0x18, 0, 0});  // 19.2 MHz
    for (std::size_t left : {row.patch, row.image}) {
      frame({0x06, 0x00});
      while (left > 0) {
        Bytes load(4 + std::min<std::size_t>(left, 4092));
        load[0] = 0x04;
        left -= load.size() - 4;
        frame(load);
      }
    }
    const Bytes booted = ask({0x07, 0x00});
    EXPECT_EQ(booted, (Bytes{0xFF, row.status_0, 0, 0, row.status_3})) << row.image;
    EXPECT_EQ(ask({0x09, 0x00}, 7)[5], row.running);
  }
}

TEST(SimulatedReceiver, RefusesWhatTheChipRefusesAndSaysWhy) {
  const std::tuple<bool, Bytes, std::string> rows[]{
      {true, {0x77, 0}, "unknown"},
      {true, {0x30, 0, 0x2E, 0x22, 0, 0, 0}, "state"},  // FM tune
      {false, {0xB0, 0, 33, 0, 0, 0}, "state"},         // DAB tune
      {true, {0xB0, 0, 33, 0, 0}, "length"},
      {true, {0xB0, 0, 41, 0, 0, 0}, "list"},   // one beyond the last
      {true, {0x13, 0, 0, 3, 64, 0}, "range"},  // volume 64
      {true, {0x81, 0, 0, 0, 0xB5, 0x43, 0, 0, 12, 0, 0, 0}, "list"}};
  for (const auto& [dab, command, why] : rows) {
    start_booted(dab);
    EXPECT_EQ(ask(command)[1] & 0xC0, 0xC0) << why;
    ASSERT_EQ(sim::violations().size(), 1U) << why;
    EXPECT_NE(sim::violations()[0].find(why), std::string::npos) << sim::violations()[0];
  }
}

TEST(SimulatedReceiver, TakesTimeToReceiveAnEnsembleAndPlaysItsService) {
  start_booted(true);
  EXPECT_EQ(ask({0xB0, 0, 33, 0, 0, 0})[1], 0x80);  // the tune goes on
  sim::pass_time(300ms);
  const Bytes tuned = ask({0xB2, 0}, 24);
  EXPECT_EQ(tuned[1], 0x81);
  EXPECT_EQ(tuned[6] & 0x05, 0x01);  // valid, not yet acquired
  EXPECT_EQ(Bytes(&tuned[13], &tuned[18]), (Bytes{0x20, 0x78, 3, 0, 33}));  // 227360 kHz
  EXPECT_EQ(ask({0xB3, 1}, 9)[6] & 1, 0);
  sim::pass_time(500ms);
  EXPECT_EQ(ask({0xB2, 0}, 24)[6] & 0x05, 0x05);
  EXPECT_EQ(ask({0xB3, 1}, 9)[5] & 1, 1);   // a new list
  EXPECT_EQ(ask({0xB3, 1}, 9)[5] & 1, 0);   // was acknowledged
  EXPECT_EQ(ask({0x84, 0}, 25)[5] & 1, 0);  // nothing plays, no packet
  EXPECT_EQ(ask({0x81, 0, 0, 0, 0xB5, 0x43, 0, 0, 12, 0, 0, 0})[1] & 0x40, 0);
  const Bytes packet = ask({0x84, 0}, 80);
  EXPECT_EQ(std::string(&packet[27], &packet[39]), "Seegrund Pop");
  EXPECT_EQ(sim::violations().size(), 0U);
}

TEST(SimulatedReceiver, SeeksFromStationToStation) {
  start_booted(false);
  std::vector<int> found;
  for (bool has_hit_limit = false; !has_hit_limit && found.size() < 30;) {
    ask({0x31, 0, 0x01, 0, 0, 0});
    sim::pass_time(5s);
    const Bytes quality = ask({0x32, 0x09}, 23);
    found.push_back((quality[7] + 256 * quality[8]) / 10);
    has_hit_limit = (quality[6] & 0x80) != 0;
  }
  EXPECT_EQ(found, (std::vector{876, 888, 903, 930, 946, 959, 971, 985, 1002, 1019, 1034, 1057,
                                1078, 876}));
  EXPECT_EQ(ask({0x34, 0}, 21)[6] & 0x1A, 0);  // silent until its properties are written
}

/// Tune to `khz`, open the RDS decoder, and take every group that comes within `duration`, as
/// words: blocks A to D with an X in place of a block that could not be corrected.
Lines groups_of(unsigned khz, std::chrono::milliseconds duration) {
  ask({0x30, 0, static_cast<std::uint8_t>(khz / 10), static_cast<std::uint8_t>(khz / 2560), 0, 0,
       0});
  ask({0x13, 0, 0x02, 0x3C, 0x01, 0x00});
  ask({0x13, 0, 0x00, 0x39, 0x00, 0x39});
  Lines groups;
  for (const auto end = sim::now() + duration; sim::now() < end; sim::pass_time(50ms)) {
    const Bytes reply = ask({0x34, 0}, 21);
    if (reply[13] == 0 && reply[14] == 0) continue;
    std::ostringstream group;
    group << std::hex << std::setfill('0');
    for (unsigned i = 0; i < 4; ++i) {
      const bool is_lost = (reply[12] >> (6 - 2 * i) & 3) == 3;
      group << (i == 0 ? "" : " ");
      is_lost ? group << 'X' : group << std::setw(4) << reply[13 + 2 * i] + 256 * reply[14 + 2 * i];
    }
    groups.push_back(group.str());
  }
  return groups;
}

TEST(SimulatedRds, SendsNameTextTagsAndTime) {
  start_booted(false);
  const Lines groups = groups_of(98'500, 30s);
  EXPECT_EQ(Lines(groups.begin(), groups.begin() + 8),
            (Lines{"4a22 054c e0cd 5345",     // 0A, TP, PTY 10: "SE", no other frequencies
                   "4a22 2540 4e6f 7720",     // 2A, A: "Now "
                   "4a22 0549 cdcd 4547",     // "EG"
                   "4a22 2541 6f6e 2053",     // "on S"
                   "4a22 054a cdcd 5255",     // "RU"
                   "4a22 3558 0000 4bd7",     // 3A: RadioText Plus in 12A
                   "4a22 054b cdcd 4e44",     // "ND"
                   "4a22 4541 d7ac 9bc2"}));  // 4A: 5 March 2024, 9:47, an hour east
  // 12A: the item runs; title from 38, 10 characters; artist from 17, 18 characters.
  EXPECT_NE(std::ranges::find(groups, "4a22 c548 3312 2231"), groups.end());
  EXPECT_NE(std::ranges::find(groups, "4a22 2550 5365 6567"), groups.end());  // B: "Seeg"
  start_booted(false);
  sim::air().rds_errors_percent = 10;
  std::size_t lost = 0;
  const Lines disturbed = groups_of(98'500, 60s);
  for (const auto& group : disturbed)
    lost += static_cast<std::size_t>(std::ranges::count(group, 'X'));
  EXPECT_NEAR(static_cast<double>(lost) / static_cast<double>(4 * disturbed.size()), 0.1, 0.02);
}

/// The next data packet: its payload in characters, or nothing.
std::string take_packet() {
  const Bytes packet = ask({0x84, 0}, 60);
  return {packet.begin() + 25, packet.begin() + 25 + packet[19]};
}

TEST(SimulatedText, ComesInSegmentsWithTagsAndGoesWithTheAntenna) {
  start_booted(true);
  sim::air().ensembles[0].services[0].texts = {{.characters = "The Paper Lanterns: Northbound",
                                                .title = "Northbound",
                                                .artist = "The Paper Lanterns",
                                                .charset = 15,
                                                .lasts = 0s},
                                               {.characters = "", .lasts = 0s}};
  ask({0xB0, 0, 0, 0, 0, 0});
  sim::pass_time(1s);
  const Bytes play = {0x81, 0, 0, 0, 0x01, 0x47, 0, 0, 1, 0, 0, 0};
  ask(play);
  sim::pass_time(3s);
  const std::string end(1, '\0');
  // Prefix: toggle, first, last, command, length less 1 or command; charset, number, or link and
  // length. Tags: title from 20, artist from 0.
  const std::string texts[]{
      "\x4F\xF0"
      "The Paper Lanter" +
          end,
      "\x2D\x10"
      "ns: Northbound" +
          end,
      "\x72\x06\x05\x01\x14\x09\x04" + end + "\x11" + end, "\xF1" + end + end};
  for (int round = 0; round < 2; ++round) {
    for (const auto& text : texts) EXPECT_EQ(take_packet(), text);
  }
  EXPECT_EQ(take_packet(), "");
  sim::pass_time(20s);
  EXPECT_EQ(ask({0x84, 0}, 25)[5] & 3, 3);  // a packet is there, and others were lost
  EXPECT_EQ(ask({0x84, 0}, 25)[6], 30);

  sim::air().has_antenna = false;
  const Bytes noise = ask({0xB2, 0}, 24);
  EXPECT_EQ(noise[6] & 0x05, 0);  // neither valid nor acquired
  EXPECT_LT(noise[7], 15);        // RSSI
  EXPECT_EQ(noise[9], 0);         // FIC quality
  EXPECT_EQ(take_packet(), "");
  EXPECT_EQ(ask({0x84, 0}, 25)[7], 1);  // still started
  sim::air().has_antenna = true;
  ask({0xB2, 0}, 24);
  sim::pass_time(1s);
  EXPECT_EQ(ask({0xB2, 0}, 24)[6] & 0x05, 0x05);
  EXPECT_EQ(take_packet(), texts[0]);
  EXPECT_EQ(sim::violations().size(), 0U);
}

TEST(SimulatedFaults, StrikeWhereTheySay) {
  // The fault, and the five bytes that a read of the status then gives.
  for (const std::string row :
       {"no_cts@opcode:B3 ff000000c0", "no_cts@frame:9 ff800000c0", "late_cts:1@frame:0 ff000000c0",
        "command_error@frame:0 ffc00000c0", "dropped_write@frame:0 ff800000c4",
        "dropped_read@opcode:00 ff800000c8", "arbiter_error ff800000c2",
        "non_recoverable@frame:1 ff800000c1", "all_ones@frame:1 ffffffffff", "all_zeros 0000000000",
        "flipped_byte:3@frame:0 ff8000ffc0", "short_reply:4@frame:0 ff80000000",
        "reset@frame:1 ff80000000"}) {
    const auto end = row.find(' ');
    start_booted(true, {sim::parse_fault(row.substr(0, end)).value()});
    std::ostringstream received;
    received << std::hex << std::setfill('0');
    for (const auto byte : ask({0xB3, 1})) received << std::setw(2) << +byte;
    EXPECT_EQ(received.str(), row.substr(end + 1)) << row;
  }
  for (const char* text : {"", "no_such", "garbage:x", "no_cts@frame", "no_cts@opcode:100"}) {
    EXPECT_FALSE(sim::parse_fault(text)) << text;
  }
}

TEST(SimulatedState, OutlivesAKilledRunAndNoDamagedFileIsBelieved) {
  const Directory files;
  const std::filesystem::path directory = files.path("");
  if (const pid_t child = ::fork(); child == 0) {
    start({.directory = directory});
    sim::set_booted(true);
    frame({0xB0, 0, 33, 0, 0, 0});
    ::_exit(0);  // as if killed: nothing is tidied up
  } else {
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  }
  std::filesystem::remove(directory / "dev/spidev0.0");  // as if SPI were disabled
  start({.directory = directory});
  sim::pass_time(1s);
  EXPECT_EQ(ask({0xB2, 0}, 24)[17], 33);
  sim::power_off();
  EXPECT_FALSE(std::filesystem::exists(directory / "dev/spidev0.0"));

  const auto whole = files.content("state");
  ASSERT_EQ(sim::serialise(sim::parse_state(whole).value()), whole);
  for (std::size_t i = 0; i + 2 < whole.size(); ++i) {
    EXPECT_FALSE(sim::parse_state(whole.substr(0, i))) << i;
  }
  files.write("state", whole.substr(0, whole.size() / 2));
  testing::internal::CaptureStderr();
  start({.directory = directory});
  EXPECT_EQ(frame(Bytes(5)), Bytes(5));  // in reset
  sim::power_on({.directory = directory / "no/such"});
  EXPECT_EQ(bcm2835_init(), 0);
  const std::string messages = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(messages.begin(), messages.end(), '\n'), 2) << messages;
  sim::power_off();
}

}  // namespace
