// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/bus.h"

#include <bcm2835.h>

#include <algorithm>
#include <csignal>

#include "si468x/board_file.h"
#include "si468x/error_codes.h"
#include "si468x/input_file.h"
#include "si468x/peripheral_discovery.h"

using namespace si468x;

namespace {

// GPIO numbers as the BCM2835 counts them.
constexpr std::uint8_t reset_pin = 23;
constexpr std::uint8_t second_line_pin = 7;
constexpr std::uint8_t first_i2s_pin = 18;
constexpr std::uint8_t last_i2s_pin = 21;

// SPI0's control/status register and FIFO, as word offsets, and the bits of the former.
constexpr int cs_register = 0;
constexpr int fifo_register = 1;
constexpr std::uint32_t cs_clear = 0x30;  // empty the transmit and the receive FIFO
constexpr std::uint32_t cs_transfer_active = 0x80;
constexpr std::uint32_t cs_done = 0x10000;
constexpr std::uint32_t cs_receive_data = 0x20000;    // the receive FIFO holds data
constexpr std::uint32_t cs_transmit_space = 0x40000;  // the transmit FIFO takes data

void set_spi_control(std::uint32_t value, std::uint32_t mask) {
  bcm2835_peri_set_bits(bcm2835_spi0 + cs_register, value, mask);
}

volatile std::sig_atomic_t is_interrupted = 0;

/// SPI can be disabled in the system's configuration; only the device node tells.
bool spi_is_enabled() { return Input_file(open_board_file("/dev/spidev0.0", "r")) != nullptr; }

}  // namespace

std::int16_t Si468x_bus_init() {
  return Si468x_SPI_setup() == 0 ? std::int16_t{0} : failed(Error::bus_init, result::invalid);
}

std::int16_t Si468x_SPI_setup() {
  discover_peripherals();
  if (bcm2835_init() == 0) return result::transfer_failed;
  if (!spi_is_enabled()) return result::transfer_failed;
  bcm2835_gpio_fsel(reset_pin, BCM2835_GPIO_FSEL_OUTP);
  bcm2835_gpio_fsel(second_line_pin, BCM2835_GPIO_FSEL_INPT);
  bcm2835_gpio_set_pud(second_line_pin, BCM2835_GPIO_PUD_UP);
  return Si468x_SPI_enable();
}

std::int16_t Si468x_bus_enable() {
  return Si468x_SPI_enable() == 0 ? std::int16_t{0} : failed(Error::bus_enable, result::invalid);
}

std::int16_t Si468x_SPI_enable() {
  if (bcm2835_spi_begin() == 0) return result::transfer_failed;
  bcm2835_spi_setBitOrder(BCM2835_SPI_BIT_ORDER_MSBFIRST);
  bcm2835_spi_setDataMode(BCM2835_SPI_MODE0);
  bcm2835_spi_setClockDivider(BCM2835_SPI_CLOCK_DIVIDER_32);
  bcm2835_spi_chipSelect(BCM2835_SPI_CS0);
  bcm2835_spi_setChipSelectPolarity(BCM2835_SPI_CS0, LOW);
  return result::ok;
}

void Si468x_bus_disable() { Si468x_SPI_disable(); }
void Si468x_SPI_disable() { bcm2835_spi_end(); }

void Si468x_SPI_RSTB_low() { bcm2835_gpio_write(reset_pin, LOW); }
void Si468x_SPI_RSTB_high() { bcm2835_gpio_write(reset_pin, HIGH); }

std::int16_t Si468x_SPI_RW_data(std::uint8_t* buf, std::uint16_t len) {
  if (is_interrupted != 0) {
    std::fill_n(buf, len, std::uint8_t{0});
  } else {
    bcm2835_spi_transfern(reinterpret_cast<char*>(buf), len);
  }
  return result::ok;
}

std::int16_t Si468x_SPI_RW_data_noCS(std::uint8_t* buf, std::uint16_t len) {
  if (is_interrupted != 0) {
    std::fill_n(buf, len, std::uint8_t{0});
  } else {
    bcm2835_spi_transfern_noCS(buf, len);
  }
  return result::ok;
}

void Si468x_SPI_CS_low() { bcm2835_spi_lowerCS(); }
void Si468x_SPI_CS_high() { bcm2835_spi_higherCS(); }

void Si468x_SPI_shutdown() {
  bcm2835_spi_end();
  bcm2835_close();
}

void Si468x_BCM2835_i2s_input() {
  for (std::uint8_t pin = first_i2s_pin; pin <= last_i2s_pin; ++pin) {
    bcm2835_gpio_fsel(pin, BCM2835_GPIO_FSEL_INPT);
    bcm2835_gpio_set_pud(pin, BCM2835_GPIO_PUD_UP);
  }
}

void Si468x_interrupt() { is_interrupted = 1; }
void Si468x_resume() { is_interrupted = 0; }

void Si468x_delay_ms(unsigned milliseconds) {
  if (is_interrupted == 0) bcm2835_delay(milliseconds);
}
void Si468x_delay_us(unsigned microseconds) {
  if (is_interrupted == 0) bcm2835_delayMicroseconds(microseconds);
}

void bcm2835_spi_lowerCS() {
  // Two writes: bytes left over from the frame before must be gone before the line goes active.
  set_spi_control(cs_clear, cs_clear);
  set_spi_control(cs_transfer_active, cs_transfer_active);
}

void bcm2835_spi_higherCS() { set_spi_control(0, cs_transfer_active); }

void bcm2835_spi_transfernb_noCS(const std::uint8_t* tbuf, std::uint8_t* rbuf, std::uint32_t len) {
  auto* const fifo = bcm2835_spi0 + fifo_register;
  // The kernel's driver has the same registers. Once it has ended our frame for one of its own,
  // nothing will come in any more: what is missing then shows in the chip's status.
  bool was_active = false;
  bool is_lost = false;
  const auto shows = [&](std::uint32_t cs_bit) {
    const auto control = bcm2835_peri_read(bcm2835_spi0 + cs_register);
    const bool is_active = (control & cs_transfer_active) != 0;
    is_lost = is_lost || (was_active && !is_active);
    was_active = was_active || is_active;
    return !is_lost && (control & cs_bit) != 0;
  };
  std::uint32_t sent = 0;
  std::uint32_t received = 0;
  while (!is_lost && (sent < len || received < len)) {
    const auto moved = sent + received;
    while (sent < len && shows(cs_transmit_space)) bcm2835_peri_write(fifo, tbuf[sent++]);
    while (received < len && shows(cs_receive_data)) {
      rbuf[received++] = static_cast<std::uint8_t>(bcm2835_peri_read(fifo));
    }
    // It may have been ended before the first look.
    if (!was_active && sent + received == moved) is_lost = true;
  }
  while (!is_lost && !shows(cs_done)) is_lost = is_lost || !was_active;
}

void bcm2835_spi_transfern_noCS(std::uint8_t* buf, std::uint32_t len) {
  bcm2835_spi_transfernb_noCS(buf, buf, len);
}
