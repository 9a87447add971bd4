// SPDX-License-Identifier: GPL-3.0-or-later
//
// The pins and SPI0 of the BCM2835 with the state that the library keeps of them.
// SPI0 is what a polled driver sees: the CS register, the transmit and receive
// FIFOs, and the shift register between them; chip select follows its TA bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "sim/clock.h"
#include "sim/spi_device.h"

namespace sim {

class Board;

class Peripherals {
 public:
  static constexpr std::size_t fifo_bytes = 64;
  static constexpr std::size_t words = 6;  ///< of SPI0's registers: 0 is CS, 1 the FIFO

  /// The state before bcm2835_init. `reset_level` is what the reset line has kept from before.
  Peripherals(Board& board, bool reset_level) : board_(board), reset_level_(reset_level) {}

  bool map();
  bool unmap();
  bool begin_spi();
  void end_spi();
  /// True when the library's registers may be used; a violation that names `call` otherwise.
  bool is_mapped(const std::string& call);
  /// Pin functions and levels; only the receiver's reset pin is wired to anything.
  void set_function(std::uint8_t pin, bool is_output);
  void set_level(std::uint8_t pin, bool is_high);
  /// Without a program: the reset line has been driven to this level before.
  void set_reset_level(bool is_high) { reset_level_ = is_high; }

  struct Spi_settings {
    bool is_most_significant_first = true;
    std::uint8_t mode = 0;
    std::uint8_t chip_select = 0;
    std::uint8_t active_level = 0;
    std::uint32_t divider = 65536;  ///< core clocks per bit; 65536 after power-on
  };
  Spi_settings spi;
  /// SPI0's registers CS and FIFO by word number. A read of CS lets the shift register move on by
  /// one byte, the pace at which a program that polls it sees the FIFOs fill and drain.
  std::uint32_t read(std::size_t word);
  void write(std::size_t word, std::uint32_t value);

 private:
  bool is_heard() const;
  void write_control(std::uint32_t value);
  void end_frame();
  void shift_one();

  Board& board_;
  bool is_mapped_ = false;
  bool has_spi_pins_ = false;
  bool reset_is_output_ = false;
  bool reset_level_;
  Spi_device* device_ = nullptr;  ///< in this frame; null: nobody hears, and MISO is not driven

  std::uint32_t control_ = 0;
  std::deque<std::uint8_t> transmit_;
  std::deque<std::uint8_t> receive_;
  std::vector<std::uint8_t> sent_;
  std::vector<std::uint8_t> received_;
  Time frame_began_{};
};

}  // namespace sim
