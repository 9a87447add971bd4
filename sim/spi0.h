// SPDX-License-Identifier: GPL-3.0-or-later
//
// SPI0 of the BCM2835 as far as a polled driver sees it: the CS register, the
// transmit and receive FIFOs, and the shift register between them. It knows its
// device only byte by byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "sim/spi_device.h"

namespace sim {

class Spi0 {
 public:
  static constexpr std::size_t fifo_bytes = 64;

  /// What the controller reports to the board.
  struct Listener {
    std::function<void()> byte_clocked;
    std::function<void(std::vector<std::uint8_t> sent, std::vector<std::uint8_t> received)>
        frame_ended;
    std::function<void(const std::string&)> misuse;
  };

  explicit Spi0(Listener listener);

  /// Connect a device to chip select 0, or null: nobody hears, and MISO reads 0x00.
  void connect(Spi_device* device);

  /// Register access by word number: 0 is CS, 1 the FIFO; other words just hold
  /// what is written. A read of CS lets the shift register move on by one byte,
  /// the pace at which a program that polls it sees the FIFOs fill and drain.
  [[nodiscard]] std::uint32_t read(std::size_t word);
  void write(std::size_t word, std::uint32_t value);

  static constexpr std::size_t words = 6;

 private:
  void write_control(std::uint32_t value);
  void shift_one();

  Listener listener_;
  Spi_device* device_ = nullptr;
  std::uint32_t control_ = 0;
  std::vector<std::uint32_t> other_words_ = std::vector<std::uint32_t>(words);
  std::deque<std::uint8_t> transmit_;
  std::deque<std::uint8_t> receive_;
  std::vector<std::uint8_t> sent_;
  std::vector<std::uint8_t> received_;
};

}  // namespace sim
