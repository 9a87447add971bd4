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

TEST(SimulatedReceiver, TakesTimeToReceiveAnEnsembleAndLosesItWithTheAntenna) {
  start_booted(true);
  ask({0xB0, 0, 33, 0, 0, 0});
  sim::pass_time(300ms);
  EXPECT_EQ(ask({0xB2, 0}, 24)[6] & 0x05, 0x01);  // valid, not yet acquired
  EXPECT_EQ(ask({0xB3, 1}, 9)[6] & 1, 0);         // no list
  sim::pass_time(500ms);
  EXPECT_EQ(ask({0xB2, 0}, 24)[6] & 0x05, 0x05);
  EXPECT_EQ(ask({0xB3, 1}, 9)[5] & 1, 1);  // a new list
  EXPECT_EQ(ask({0xB3, 1}, 9)[5] & 1, 0);  // was acknowledged
  ask({0x81, 0, 0, 0, 0xB5, 0x43, 0, 0, 12, 0, 0, 0});
  sim::pass_time(20s);
  EXPECT_EQ(ask({0x84, 0}, 25)[5] & 3, 3);  // a packet is there, and others were lost
  EXPECT_EQ(ask({0x84, 0}, 25)[6], 30);
  sim::air().has_antenna = false;
  const Bytes noise = ask({0xB2, 0}, 24);
  EXPECT_EQ(noise[6] & 0x05, 0);
  EXPECT_LT(noise[7], 15);  // RSSI
  EXPECT_EQ(noise[9], 0);   // FIC quality
  EXPECT_EQ(ask({0x84, 0}, 25)[5] & 1, 0);
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
