// SPDX-License-Identifier: GPL-3.0-or-later
//
// The receiver's lines on the Raspberry Pi: SPI0 with chip select CE0, and the reset line on
// GPIO 23. The lowest layer of the driver; everything above it reaches the hardware, and waits,
// through here.
#pragma once

#include <cstdint>

/// Set up the bus (Si468x_SPI_setup). 0, or -6 with Si468x_ErrorCode 1.
std::int16_t Si468x_bus_init();

/// Map the peripherals, check that the system has SPI enabled, configure the board's pins and start
/// SPI0: mode 0, most significant bit first, divider 32, CE0 active low. The reset line keeps its
/// level, so that a running receiver runs on. 0, or -1 at the first step that fails; what was done
/// until then stays done.
std::int16_t Si468x_SPI_setup();

/// Start SPI0 again after Si468x_bus_disable. 0, or -6 with Si468x_ErrorCode 3.
std::int16_t Si468x_bus_enable();
/// Start and configure SPI0. 0, or -1 when the library cannot start it.
std::int16_t Si468x_SPI_enable();

/// Stop SPI0: its pins become inputs, the peripherals stay mapped.
void Si468x_bus_disable();
void Si468x_SPI_disable();

/// Drive the receiver's reset line (active low): low holds the chip in reset.
void Si468x_SPI_RSTB_low();
void Si468x_SPI_RSTB_high();

/// Exchange `len` bytes under one chip select of its own, full duplex and in place: each byte of
/// `buf` is sent and replaced by the byte that came in meanwhile. Always 0.
std::int16_t Si468x_SPI_RW_data(std::uint8_t* buf, std::uint16_t len);

/// The same exchange without touching chip select. A frame in several pieces is Si468x_SPI_CS_low,
/// any number of these, Si468x_SPI_CS_high. Always 0.
std::int16_t Si468x_SPI_RW_data_noCS(std::uint8_t* buf, std::uint16_t len);
void Si468x_SPI_CS_low();   ///< Empty both FIFOs, then assert chip select.
void Si468x_SPI_CS_high();  ///< Release chip select.

/// Stop SPI0 and give the peripheral mapping back.
void Si468x_SPI_shutdown();

/// Make the I2S pins (GPIO 18 to 21) inputs with pull-ups, for a board whose I2S lines another
/// device drives.
void Si468x_BCM2835_i2s_input();

/// Let the driver's operation end soon: until Si468x_resume, waits take no time, and transfers do
/// not happen and bring zeros, which say "not ready", so that every operation runs into its own
/// time-out at once. Pins and chip select are driven as always. May be called by a signal handler;
/// a long wait in progress ends when the signal interrupts the system's sleep.
void Si468x_interrupt();
void Si468x_resume();

/// Blocking waits.
void Si468x_delay_ms(unsigned milliseconds);
void Si468x_delay_us(unsigned microseconds);

// What the library's SPI lacks: chip select held over several transfers. Named in its manner.

/// Empty both FIFOs, then set transfer active: the selected chip-select line is driven until
/// bcm2835_spi_higherCS.
void bcm2835_spi_lowerCS();
void bcm2835_spi_higherCS();
/// Send `len` bytes of `tbuf` while `len` bytes come into `rbuf` (which may be the same array),
/// with transfer active already set; it stays set. Returns when the last bit is on the wire, or
/// when somebody else has cleared transfer active: the rest of `rbuf` is then untouched.
void bcm2835_spi_transfernb_noCS(const std::uint8_t* tbuf, std::uint8_t* rbuf, std::uint32_t len);
void bcm2835_spi_transfern_noCS(std::uint8_t* buf, std::uint32_t len);
