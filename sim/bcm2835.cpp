// SPDX-License-Identifier: GPL-3.0-or-later
//
// The functions and variables of the bcm2835 library that the driver uses, on the
// simulated board. Calls that would touch unmapped memory on a real one do
// nothing here and are reported as violations.
#include <bcm2835.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <string>

#include "sim/board.h"

namespace {

using sim::board;

/// Where bcm2835_spi0 points. Only the addresses count: product code reaches the words through
/// bcm2835_peri_*, and what they hold is in the peripherals.
std::array<volatile std::uint32_t, sim::Peripherals::words> register_block{};

volatile std::uint32_t* unmapped() noexcept {
  return static_cast<volatile std::uint32_t*>(MAP_FAILED);
}

void log(const std::string& text) { board().log({.at = board().clock.now(), .text = text}); }

/// The peripherals, if they may be used; null, and a violation, before bcm2835_init.
sim::Peripherals* mapped(const std::string& call) {
  sim::Peripherals& peripherals = board().peripherals;
  return peripherals.is_mapped(call) ? &peripherals : nullptr;
}

/// Log a call, for the peripherals that it changes.
sim::Peripherals* called(const std::string& call) {
  log(call);
  return mapped(call);
}
std::string text(const char* name, unsigned number, const char* word = "") {
  return std::string(name) + ' ' + std::to_string(number) + word;
}

/// The word of SPI0 at `address`; nothing, and a violation, for memory that is not SPI0's.
std::optional<std::size_t> word_at(const volatile uint32_t* address, const char* caller) {
  if (mapped(caller) == nullptr) return std::nullopt;
  const auto* begin = register_block.data();
  const std::less<> is_before;
  if (!is_before(address, begin) && is_before(address, begin + register_block.size())) {
    return static_cast<std::size_t>(address - begin);
  }
  board().report_violation(std::string(caller) + " outside SPI0");
  return std::nullopt;
}

}  // namespace

off_t bcm2835_peripherals_base = BCM2835_PERI_BASE;
size_t bcm2835_peripherals_size = BCM2835_PERI_SIZE;
volatile uint32_t* bcm2835_spi0 = unmapped();

void sim::unmap_library() {
  bcm2835_peripherals_base = BCM2835_PERI_BASE;
  bcm2835_peripherals_size = BCM2835_PERI_SIZE;
  bcm2835_spi0 = unmapped();
}

int bcm2835_init(void) {
  board().catch_up();
  log("init");
  const bool is_mapped = board().peripherals.map();
  bcm2835_spi0 = is_mapped ? register_block.data() : unmapped();
  return is_mapped ? 1 : 0;
}

int bcm2835_close(void) {
  log("close");
  bcm2835_spi0 = unmapped();
  board().save();
  return board().peripherals.unmap() ? 1 : 0;
}

void bcm2835_gpio_fsel(uint8_t pin, uint8_t mode) {
  const bool is_output = mode == BCM2835_GPIO_FSEL_OUTP;
  auto* const pins = called(text("fsel", pin, is_output ? " out" : " in"));
  if (pins != nullptr) pins->set_function(pin, is_output);
}

void bcm2835_gpio_set_pud(uint8_t pin, uint8_t pud) {
  constexpr std::array words = {" off", " down", " up"};
  (void)called(text("pud", pin, words.at(pud)));
}

void bcm2835_gpio_write(uint8_t pin, uint8_t on) {
  auto* const pins = called(text("gpio", pin, on == LOW ? " low" : " high"));
  if (pins != nullptr) pins->set_level(pin, on != LOW);
}

int bcm2835_spi_begin(void) {
  auto* const peripherals = called("spi_begin");
  return peripherals != nullptr && peripherals->begin_spi() ? 1 : 0;
}

void bcm2835_spi_end(void) {
  if (auto* const peripherals = called("spi_end")) peripherals->end_spi();
}

void bcm2835_spi_setBitOrder(uint8_t order) {
  const bool is_msb_first = order == BCM2835_SPI_BIT_ORDER_MSBFIRST;
  auto* const peripherals = called(is_msb_first ? "bit_order msb" : "bit_order lsb");
  if (peripherals != nullptr) peripherals->spi.is_most_significant_first = is_msb_first;
}

void bcm2835_spi_setDataMode(uint8_t mode) {
  if (auto* const peripherals = called(text("mode", mode))) peripherals->spi.mode = mode;
}

void bcm2835_spi_setClockDivider(uint16_t divider) {
  auto* const peripherals = called(text("divider", divider));
  if (peripherals != nullptr) peripherals->spi.divider = divider != 0 ? divider : 65536;
}

void bcm2835_spi_chipSelect(uint8_t cs) {
  if (auto* const peripherals = called(text("cs", cs))) peripherals->spi.chip_select = cs;
}

void bcm2835_spi_setChipSelectPolarity(uint8_t cs, uint8_t active) {
  auto* const peripherals = called(text("cs_polarity", cs, active == LOW ? " low" : " high"));
  if (peripherals != nullptr && cs == BCM2835_SPI_CS0) peripherals->spi.active_level = active;
}

void bcm2835_spi_transfern(char* buf, uint32_t len) {
  constexpr std::size_t control = BCM2835_SPI0_CS / 4;
  constexpr std::size_t fifo = BCM2835_SPI0_FIFO / 4;
  auto& spi = board().peripherals;
  if (!spi.is_mapped("bcm2835_spi_transfern")) {
    std::fill_n(buf, len, char{0});
    return;
  }
  spi.write(control, BCM2835_SPI0_CS_CLEAR);
  spi.write(control, BCM2835_SPI0_CS_TA);
  for (uint32_t i = 0; i < len; ++i) {
    spi.write(fifo, static_cast<unsigned char>(buf[i]));
    while ((spi.read(control) & BCM2835_SPI0_CS_RXD) == 0) {
    }
    buf[i] = static_cast<char>(spi.read(fifo));
  }
  spi.write(control, 0);
}

void bcm2835_delay(unsigned int millis) {
  log(text("delay_ms", millis));
  board().clock.wait(std::chrono::milliseconds(millis));
}

void bcm2835_delayMicroseconds(uint64_t micros) {
  log("delay_us " + std::to_string(micros));
  board().clock.wait(std::chrono::microseconds(static_cast<std::int64_t>(micros)));
}

uint32_t bcm2835_peri_read(volatile uint32_t* paddr) {
  const auto word = word_at(paddr, "bcm2835_peri_read");
  return word ? board().peripherals.read(*word) : 0;
}

void bcm2835_peri_write(volatile uint32_t* paddr, uint32_t value) {
  if (const auto word = word_at(paddr, "bcm2835_peri_write")) {
    board().peripherals.write(*word, value);
  }
}

void bcm2835_peri_set_bits(volatile uint32_t* paddr, uint32_t value, uint32_t mask) {
  bcm2835_peri_write(paddr, (bcm2835_peri_read(paddr) & ~mask) | (value & mask));
}
