// SPDX-License-Identifier: GPL-3.0-or-later
//
// What hangs on the simulated board's SPI0 and reset line: the receiver in
// kestrel-sim, or a scripted stand-in in a test. The peripherals call it; it
// knows nothing of registers, pins or the bcm2835 library.
#pragma once

#include <cstdint>

namespace sim {

/// What MISO reads when nobody drives it, as when the device is in reset or the
/// pins are not SPI pins: GPIO 9 has its pull-down after power-on.
inline constexpr std::uint8_t undriven_byte = 0x00;

/// A device on chip select 0 whose reset input is GPIO 23.
class Spi_device {
 public:
  Spi_device() = default;
  Spi_device(const Spi_device&) = delete;
  Spi_device& operator=(const Spi_device&) = delete;
  Spi_device(Spi_device&&) = delete;
  Spi_device& operator=(Spi_device&&) = delete;
  virtual ~Spi_device() = default;
  /// Chip select goes active: a frame begins.
  virtual void select() = 0;
  /// One byte of the frame, full duplex: `mosi` arrives while the result leaves.
  virtual std::uint8_t exchange(std::uint8_t mosi) = 0;
  /// Chip select is released: the frame is complete.
  virtual void deselect() = 0;
  /// The reset line takes a level; low holds the device in reset.
  virtual void reset_line(bool high) = 0;
};

}  // namespace sim
