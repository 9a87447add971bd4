// SPDX-License-Identifier: GPL-3.0-or-later
//
// The board's lines and SPI, and the discovery of its peripherals.
#include <bcm2835.h>

#include <numeric>
#include <tuple>

#include "si468x/boot.h"
#include "si468x/dab_tuning.h"
#include "si468x/peripheral_discovery.h"
#include "si468x/service_playback.h"
#include "support.h"

namespace {

using Bus = Board;

const Lines setup{"init",          "fsel 23 out", "fsel 7 in",  "pud 7 up", "spi_begin",
                  "bit_order msb", "mode 0",      "divider 32", "cs 0",     "cs_polarity 0 low"};

TEST_F(Bus, SetupStopsAtTheFirstFailureAndNeverMovesTheResetLine) {
  sim::Settings good, no_board, no_spi, no_spidev;
  no_board.faults = {{sim::Fault_kind::no_board}};
  no_spi.faults = {{sim::Fault_kind::no_spi}};
  no_spidev.board_files.erase("/dev/spidev0.0");
  for (const auto& [settings, steps] :
       {std::pair<sim::Settings, int>{good, 10}, {no_board, 1}, {no_spidev, 1}, {no_spi, 5}}) {
    SCOPED_TRACE(steps);
    sim::power_on(settings);
    Si468x_ErrorCode = 0;
    bcm2835_peripherals_base = 0;
    EXPECT_EQ(with_code(Si468x_SPI_setup()), std::pair(steps == 10 ? 0 : -1, 0U));
    EXPECT_EQ(sim::event_texts(), Lines(setup.begin(), setup.begin() + steps));
    EXPECT_EQ(bcm2835_peripherals_base, 0xFE000000);
    EXPECT_EQ(with_code(Si468x_bus_init()), steps == 10 ? std::pair(0, 0U) : std::pair(-6, 1U));
  }
  EXPECT_EQ(with_code(Si468x_bus_enable()), std::pair(-6, 3U));
}

TEST_F(Bus, LinesMoveInTheOrderAsked) {
  start();
  Si468x_bus_disable();
  EXPECT_EQ(sim::event_texts(), Lines{"spi_end"});
  sim::clear_events();
  EXPECT_EQ(Si468x_bus_enable(), 0);
  EXPECT_EQ(sim::event_texts(), Lines(setup.begin() + 4, setup.end()));
  sim::clear_events();
  Si468x_SPI_RSTB_high();
  Si468x_BCM2835_i2s_input();
  Si468x_power_down();
  EXPECT_EQ(sim::event_texts(), (Lines{"gpio 23 high", "fsel 18 in", "pud 18 up", "fsel 19 in",
                                       "pud 19 up", "fsel 20 in", "pud 20 up", "fsel 21 in",
                                       "pud 21 up", "gpio 23 low", "spi_end", "close"}));
}

TEST_F(Bus, PiecesUnderOneChipSelectAreOneFrameInPlace) {
  Bytes sent(300), received(300), whole{0x0A, 0x0B};
  std::iota(sent.begin(), sent.end(), std::uint8_t{1});
  std::iota(received.begin(), received.end(), std::uint8_t{77});
  start().answer(received).answer({0xA1, 0xA2});
  auto buffer = sent;
  bcm2835_peri_write(bcm2835_spi0 + 1, 0x55);  // left over in the FIFO
  Si468x_SPI_CS_low();
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(buffer.data(), 4), 0);
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(buffer.data() + 4, 0), 0);
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(buffer.data() + 4, 296), 0);  // the FIFOs hold 64
  Si468x_SPI_CS_high();
  EXPECT_EQ(buffer, received);
  EXPECT_EQ(Si468x_SPI_RW_data(whole.data(), 2), 0);
  EXPECT_EQ(whole, (Bytes{0xA1, 0xA2}));
  EXPECT_EQ(sim::commands(), (std::vector{sent, {0x0A, 0x0B}}));
  EXPECT_EQ(Si468x_SPI_RW_data(whole.data(), 0), 0);
  EXPECT_EQ(sim::wire_bytes(), 302U);
  EXPECT_EQ(sim::violations(), Lines{});
}

TEST_F(Bus, FrameThatTheKernelEndsIsGivenUp) {
  // Beside the chip the kernel's driver takes the controller at the tenth byte of the first frame.
  start().answer(Bytes(300, 0xA5)).answer({11}).on_byte = [](std::size_t at, auto) {
    if (at == 9) bcm2835_peri_set_bits(bcm2835_spi0, 0, 0x80);
  };
  Bytes bytes(300, 0x11), next(1);
  Si468x_SPI_CS_low();
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(bytes.data(), 300), 0);
  Si468x_SPI_CS_high();
  Si468x_SPI_CS_low();  // what is left in the FIFOs is not of the next frame
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(next.data(), 1), 0);
  Si468x_SPI_CS_high();
  EXPECT_EQ(next, Bytes{11});
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(bytes.data(), 0), 0);  // without chip select
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(bytes.data(), 300), 0);
  EXPECT_EQ(bytes, Bytes(300, 0x11));
  EXPECT_EQ(sim::wire_bytes(), 11U);
}

TEST(Discovery, AddressIsAnIntegerOrAPointer) {
  EXPECT_EQ(peripheral_address<off_t>(0x3F000000), 0x3F000000);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(peripheral_address<std::uint32_t*>(0x3F000000)),
            0x3F000000U);
}

TEST_F(Bus, InterruptedDriverEndsEachOperationAtOnceAndSendsNothing) {
  start().by_default(frame(0x81, 0xC0, {1, 5, 0, 0, 99}));
  Bytes bytes{1, 2, 3}, whole{1, 2}, array(service_data_reply_bytes, 0x77);
  Si468x_SPI_CS_low();
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(bytes.data(), 1), 0);
  Si468x_interrupt();
  EXPECT_EQ(Si468x_SPI_RW_data_noCS(bytes.data() + 1, 2), 0);
  Si468x_SPI_CS_high();
  EXPECT_EQ(bytes, (Bytes{0x5A, 0, 0}));
  EXPECT_EQ(Si468x_SPI_RW_data(whole.data(), 2), 0);
  EXPECT_EQ(whole, Bytes(2));
  EXPECT_EQ(happened(), Lines{"frame 01"});
  Si468x_DAB_digrad_status status;
  Si468x_digital_service_data packet;
  EXPECT_EQ(Si468x_DAB_tune_freq_save(1, status), -3);
  EXPECT_EQ(Si468x_DAB_tune_and_acquire(1), -3);
  EXPECT_EQ(packet.get_new_data(array.data()), -3);
  EXPECT_EQ(Si468x_load_and_boot(1), Boot_step::power_up);
  EXPECT_EQ(sim::wire_bytes(), 1U);
  EXPECT_EQ(sim::waited().count(), 0);
  Si468x_resume();
  EXPECT_EQ(Si468x_DAB_tune_freq(1), 0);
  EXPECT_EQ(sim::violations(), Lines{});
}

TEST_F(Bus, PeripheralBlockIsFoundByTheModelDigit) {
  const auto unsupported = [](const std::string& version) {
    return "bcm2835_init: Unsupported hardware version or error reading version " + version +
           "\nTrying with Raspberry Pi 3 offsets, even without knowing there is hardware support. "
           "Expect further errors.\n";
  };
  const std::string words("\x7e\0\0\0\x11\x22\x33\x44\x55\x66\x77\x88\x19\xaa\xbb\xcc", 16);
  constexpr std::uint32_t first = 0x11223344, second = 0x55667788, third = 0x19AABBCC, kept = 0x77;
  // What follows "Raspberry Pi" in the model; bytes in the ranges file; message, base, size.
  const std::tuple<std::string, std::size_t, std::string, std::uint32_t, std::uint32_t> cases[]{
      {"", 16, "", first, second},
      {" ", 16, "", first, second},
      {" 0", 16, "", first, second},
      {" 3 Model B", 16, "", first, second},
      {" 4 Model B", 16, "", second, third},
      {" 5 Model B", 16, unsupported("5"), first, second},
      {" Zero W", 16, "Guessing Raspberry Pi version: Pi Zero\n", first, second},
      {" Model B", 16, unsupported("29"), first, second},
      {" /", 16, unsupported("255"), first, second},
      {" 4", 15, "", second, kept},
      {" 4", 11, "", kept, kept},
      {" 3", 11, "", first, kept},
      {"no such files", 0, "", kept, kept},
      {"no such files", 16, "", first, second}};
  for (const auto& [model, bytes, message, base, size] : cases) {
    SCOPED_TRACE(model);
    sim::Settings settings{.board_files = {}};
    if (model != "no such files")
      settings.board_files["/proc/device-tree/model"] = "Raspberry Pi" + model;
    if (bytes > 0) settings.board_files["/proc/device-tree/soc/ranges"] = words.substr(0, bytes);
    sim::power_on(settings);
    bcm2835_peripherals_base = kept;
    bcm2835_peripherals_size = kept;
    testing::internal::CaptureStderr();
    discover_peripherals();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), message);
    EXPECT_EQ(bcm2835_peripherals_base, static_cast<off_t>(base));
    EXPECT_EQ(bcm2835_peripherals_size, size);
  }
}

}  // namespace
