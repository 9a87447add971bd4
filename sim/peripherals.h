// SPDX-License-Identifier: GPL-3.0-or-later
//
// The pins and SPI0 of the board with the state that the bcm2835 library keeps of
// them. The library's functions, in the same file pair, work on the present
// world's one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "sim/clock.h"
#include "sim/spi0.h"

namespace sim {

class World;

class Peripherals {
 public:
  /// The state before bcm2835_init. `reset_level` is what the reset line has kept
  /// from before; the board's world outlives its peripherals.
  Peripherals(World& world, bool reset_level);

  bool map();
  bool unmap();
  bool begin_spi();
  void end_spi();

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
    std::uint32_t divider = 65536;  ///< core clocks a bit; 65536 after power-on
  };
  [[nodiscard]] const Spi_settings& spi_settings() const { return settings_; }
  void set_spi(const Spi_settings& settings);

  [[nodiscard]] Spi0& spi() { return spi_; }

  /// True when the library's registers may be used; a violation that names `caller` otherwise.
  [[nodiscard]] bool is_mapped(const char* caller);

 private:
  void connect();

  World& world_;
  bool is_mapped_ = false;
  bool has_spi_pins_ = false;
  bool is_heard_ = false;
  std::uint32_t init_calls_ = 0;
  std::uint32_t begin_calls_ = 0;
  bool reset_is_output_ = false;
  bool reset_level_;
  Spi_settings settings_;
  std::optional<Time> frame_began_;
  Spi0 spi_;
};

}  // namespace sim
