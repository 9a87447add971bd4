// SPDX-License-Identifier: GPL-3.0-or-later
//
// Where the Raspberry Pi's peripheral block lies in memory differs from model to model. The bus
// setup finds it here just before it has the bcm2835 library map it.
#pragma once

/// Read board model and peripheral ranges from the device tree and store base and size of the
/// peripheral block in `bcm2835_peripherals_base` and `bcm2835_peripherals_size`. A value that
/// cannot be read keeps the library's default. Writes to standard error when the model is a Pi Zero
/// (the layout is a guess) or unknown (the layout of a Pi 3 is tried).
void discover_peripherals();
