// SPDX-License-Identifier: GPL-3.0-or-later
//
// The record of a run as an oscilloscope on the board would show it: library
// calls that move a pin or take time, and chip-select frames with the bytes
// both ways. The peripherals write it, tests read it, the trace file prints it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

enum class Event_kind : std::uint8_t {
  init,
  close,
  fsel,  ///< numbers: pin, function (0 input, 1 output)
  pud,   ///< numbers: pin, pull (0 off, 1 down, 2 up)
  gpio,  ///< numbers: pin, level
  spi_begin,
  spi_end,
  bit_order,    ///< number: 0 least, 1 most significant bit first
  mode,         ///< number: SPI mode
  divider,      ///< number: clock divider
  cs,           ///< number: chip select
  cs_polarity,  ///< numbers: chip select, active level
  delay_ms,     ///< number: milliseconds
  delay_us,     ///< number: microseconds
  frame,        ///< one chip-select period: `sent` and `received`
};

struct Event {
  Event_kind kind = Event_kind::init;
  std::chrono::nanoseconds at{};            ///< simulated time at its beginning
  std::uint64_t first = 0;                  ///< first number, where the kind has one
  std::uint64_t second = 0;                 ///< second number, where the kind has two
  std::vector<std::uint8_t> sent = {};      ///< frames: MOSI, whole
  std::vector<std::uint8_t> received = {};  ///< frames: MISO, as long as `sent`
};

/// Short stable text of an event, for expectations in tests: "init", "close",
/// "fsel 23 out", "pud 7 up", "gpio 23 low", "spi_begin", "spi_end",
/// "bit_order msb", "mode 0", "divider 32", "cs 0", "cs_polarity 0 low",
/// "delay_ms 200", "delay_us 50", "frame 01 00 1f" (the bytes sent, all of them,
/// lower-case hex; the bytes received are not in the text).
[[nodiscard]] std::string to_string(const Event& event);

/// The first `most` of `bytes` in lower-case hex with blanks between them.
[[nodiscard]] std::string hex(const std::vector<std::uint8_t>& bytes, std::size_t most);

}  // namespace sim
