// SPDX-License-Identifier: GPL-3.0-or-later
//
// Reset, power-up, loading and booting of the receiver, which has no firmware of its own, and its
// power-down. `power_up_and_load_fw` is the front end's `boot` option; the run calls
// Si468x_power_down for `shutdown`.
#pragma once

#include <cstdint>

/// Pulse the reset line: 200 ms low, then 50 ms for the chip to come up.
void Si468x_reset();

/// Start the boot loader with the board's crystal settings. 0; -5 with code 104 when the chip is
/// then in another state than the boot loader's; or the protocol's result with code 4.
std::int16_t Si468x_power_up();

/// Prepare the chip for an image. The protocol's result and code.
std::int16_t Si468x_load_init();

/// Send the `size` bytes of `image` in chunks of 4092 bytes. 0; -6 with code 8 when there are none;
/// or the failed chunk's result with code 108.
std::int16_t Si468x_load_firmware_static(const unsigned char* image, unsigned int size);

/// Send one chunk of the low 16 bits of `length` bytes and wait for CTS (50 polls, 125 ms). `data`
/// is the caller's and is overwritten by the transfer. 0; -3 with code 160 without CTS; -1 or -2
/// with code 260 for an error status.
std::int16_t Si468x_load_firmware_datapackage(unsigned char* data, unsigned int length);

/// Send the image in the file `path`, as Si468x_load_firmware_static does. 0; -6 with code 7
/// (cannot be opened), 107 (empty) or 1007 + 100 x chunk (short read); or the failed chunk's result
/// with code 207.
std::int16_t Si468x_load_firmware(char* path);

/// Have the chip load an image from its own flash memory at `address`, without waiting for it. 0,
/// or the transfer's result with code 9.
std::int16_t Si468x_load_firmware_flash(unsigned int address);

/// Start the loaded image. 0; -4 with code 110 when no firmware runs then; or the protocol's result
/// with code 10.
std::int16_t Si468x_boot();

/// Hold the chip in reset and give the bus and the peripheral mapping back.
void Si468x_power_down();

/// The step at which loading and booting ended.
enum class Boot_step {
  power_up,  ///< the chip could not be powered up
  patch,     ///< it did not take the boot patch
  firmware,  ///< it did not take the firmware
  boot,      ///< it did not boot the firmware
  done,      ///< the firmware runs
};

/// Start the bus, reset the chip, load the patch and the DAB (`dab` not 0) or the FM-HD firmware,
/// and boot it. The step that failed, or Boot_step::done. After Boot_step::patch or firmware the
/// chip holds half an image: Si468x_give_up_load is then due.
Boot_step Si468x_load_and_boot(unsigned char dab);

/// Put a chip that did not take an image back into reset, stop SPI0 and wait 2 s.
void Si468x_give_up_load();

/// Command `boot`: reset the chip, load the patch and the DAB (`dab` not 0) or the FM-HD firmware
/// and boot it, with a message for how it ended. 1 when it booted, else 0.
std::int16_t power_up_and_load_fw(unsigned char dab);
