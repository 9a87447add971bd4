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
using Spi_settings = sim::Peripherals::Spi_settings;

/// Where bcm2835_spi0 points. Only the addresses count: product code reaches the words through
/// bcm2835_peri_*, and what they hold is in the peripherals.
std::array<volatile std::uint32_t, sim::Peripherals::words> register_block{};

volatile std::uint32_t* unmapped() noexcept {
  return static_cast<volatile std::uint32_t*>(MAP_FAILED);
}

/// Names of the values 0, 1, ... of a number; beyond them it is written as a number.
using Words = std::array<const char*, 3>;
constexpr Words functions = {"in", "out"};
constexpr Words pulls = {"off", "down", "up"};
constexpr Words levels = {"low", "high"};
constexpr Words bit_orders = {"lsb", "msb"};

std::string in_words(unsigned number, const Words& words) {
  const bool has_word = number < words.size() && words[number] != nullptr;
  return has_word ? words[number] : std::to_string(number);
}

void log(const std::string& name, const std::string& last = "") {
  board().log({.at = board().clock.now(), .text = last.empty() ? name : name + ' ' + last});
}
void log(const std::string& name, unsigned pin, const std::string& last) {
  log(name + ' ' + std::to_string(pin), last);
}

/// The peripherals, if they may be used; null, and a violation, before bcm2835_init.
sim::Peripherals* mapped(const char* caller) {
  sim::Peripherals& peripherals = board().peripherals;
  return peripherals.is_mapped(caller) ? &peripherals : nullptr;
}

template <class Change>
void change_spi(const char* caller, Change change) {
  if (auto* const peripherals = mapped(caller)) {
    Spi_settings settings = peripherals->spi_settings();
    change(settings);
    peripherals->set_spi(settings);
  }
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
  log("fsel", pin, in_words(mode, functions));
  if (auto* const pins = mapped("bcm2835_gpio_fsel")) {
    pins->set_function(pin, mode == BCM2835_GPIO_FSEL_OUTP);
  }
}

void bcm2835_gpio_set_pud(uint8_t pin, uint8_t pud) {
  log("pud", pin, in_words(pud, pulls));
  (void)mapped("bcm2835_gpio_set_pud");
}

void bcm2835_gpio_write(uint8_t pin, uint8_t on) {
  log("gpio", pin, on == LOW ? "low" : "high");
  if (auto* const pins = mapped("bcm2835_gpio_write")) pins->set_level(pin, on != LOW);
}

int bcm2835_spi_begin(void) {
  log("spi_begin");
  return board().peripherals.begin_spi() ? 1 : 0;
}

void bcm2835_spi_end(void) {
  log("spi_end");
  if (auto* const peripherals = mapped("bcm2835_spi_end")) peripherals->end_spi();
}

void bcm2835_spi_setBitOrder(uint8_t order) {
  log("bit_order", in_words(order, bit_orders));
  change_spi("bcm2835_spi_setBitOrder", [order](Spi_settings& settings) {
    settings.is_most_significant_first = order == BCM2835_SPI_BIT_ORDER_MSBFIRST;
  });
}

void bcm2835_spi_setDataMode(uint8_t mode) {
  log("mode", std::to_string(mode));
  change_spi("bcm2835_spi_setDataMode", [mode](Spi_settings& settings) { settings.mode = mode; });
}

void bcm2835_spi_setClockDivider(uint16_t divider) {
  log("divider", std::to_string(divider));
  change_spi("bcm2835_spi_setClockDivider",
             [divider](Spi_settings& settings) { settings.divider = divider; });
}

void bcm2835_spi_chipSelect(uint8_t cs) {
  log("cs", std::to_string(cs));
  change_spi("bcm2835_spi_chipSelect", [cs](Spi_settings& settings) { settings.chip_select = cs; });
}

void bcm2835_spi_setChipSelectPolarity(uint8_t cs, uint8_t active) {
  log("cs_polarity", cs, in_words(active, levels));
  change_spi("bcm2835_spi_setChipSelectPolarity", [cs, active](Spi_settings& settings) {
    if (cs == BCM2835_SPI_CS0) settings.active_level = active;
  });
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
  log("delay_ms", std::to_string(millis));
  board().clock.wait(std::chrono::milliseconds(millis));
}

void bcm2835_delayMicroseconds(uint64_t micros) {
  log("delay_us", std::to_string(micros));
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
