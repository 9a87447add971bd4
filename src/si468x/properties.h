// SPDX-License-Identifier: GPL-3.0-or-later
//
// The chip's settings are 16-bit properties under 16-bit ids. Writing one is verified by reading it
// back. The commands `level` and `i2s_out` do that; the RDS report sets properties of its own.
#pragma once

#include <cstdint>

/// Where set_volume composes its message.
extern char buffer[5000];

/// Write the value `prop[1]` into the property `prop[0]` and read it back. 0; -6 with code 218 when
/// another value reads back; or the protocol's result with code 18 (write) or 118 (read).
std::int16_t Si468x_set_property(std::uint16_t* prop);

/// Read the property `prop[0]` into `prop[1]`. 0, or the protocol's result with code 17; `prop` is
/// then untouched.
std::int16_t Si468x_get_property(std::uint16_t* prop);

/// Command `level`: set the analogue volume, 0 to 63, with a message; a higher level gets a message
/// of its own and does not reach the chip. Always 0.
int set_volume(unsigned int level);

/// Set the analogue volume to `level` or, if less, to 63, without a message. The result of
/// Si468x_set_property.
std::int16_t set_properties_volume(unsigned char level);

/// Command `i2s_out`: sound leaves the chip over I2S (`enable` not 0) or the analogue output. 0, or
/// -1 at the first property that failed; the later ones are then not written.
std::int16_t set_properties_output(unsigned char enable);

/// The same, but a property that fails does not keep the others from being written. Always 0.
std::int16_t set_options_i2s(unsigned char enable);
