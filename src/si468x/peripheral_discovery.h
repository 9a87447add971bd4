// SPDX-License-Identifier: GPL-3.0-or-later
//
// Where the Raspberry Pi's peripheral block lies in memory differs from model to model. The bus
// setup finds it here just before it has the bcm2835 library map it.
#pragma once

#include <cstdint>
#include <type_traits>

/// A bus address in the type that the library's release has for `bcm2835_peripherals_base`: an
/// integer or a pointer.
template <class Address>
Address peripheral_address(std::uint32_t address) {
  if constexpr (std::is_pointer_v<Address>) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): so the library has it
    return reinterpret_cast<Address>(static_cast<std::uintptr_t>(address));
  } else {
    return static_cast<Address>(address);
  }
}

/// Read board model and peripheral ranges from the device tree and store base and size of the
/// peripheral block in `bcm2835_peripherals_base` and `bcm2835_peripherals_size`. A value that
/// cannot be read keeps the library's default. Writes to standard error when the model is a Pi Zero
/// (the layout is a guess) or unknown (the layout of a Pi 3 is tried).
void discover_peripherals();
