// SPDX-License-Identifier: GPL-3.0-or-later
//
// The functions and variables of the bcm2835 library that the driver uses, on the
// simulated board. Calls that would touch unmapped memory on a real one do
// nothing here and are reported as violations; a frame while the pins are no SPI
// pins reaches nobody and reads zeros.
#include "sim/peripherals.h"

#include <bcm2835.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <utility>

#include "sim/world.h"

namespace {

/// Where bcm2835_spi0 points. Only the addresses count: product code reaches the words through
/// bcm2835_peri_*, and what they hold is in the controller.
std::array<volatile std::uint32_t, sim::Spi0::words> register_block{};

volatile std::uint32_t* unmapped() noexcept {
  return static_cast<volatile std::uint32_t*>(MAP_FAILED);
}

}  // namespace

off_t bcm2835_peripherals_base = BCM2835_PERI_BASE;
size_t bcm2835_peripherals_size = BCM2835_PERI_SIZE;
volatile uint32_t* bcm2835_spi0 = unmapped();

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t reset_pin = 23;
constexpr Time core_clock_period = 4ns;  // 250 MHz
constexpr std::uint32_t slowest_divider = 65536;
constexpr std::uint32_t fastest_divider = 26;  // the receiver takes 10 MHz at most

Peripherals& peripherals() { return world().peripherals(); }

void log(Event_kind kind, std::uint64_t first = 0, std::uint64_t second = 0) {
  World& board = world();
  board.log({.kind = kind, .at = board.clock().now(), .first = first, .second = second});
}

}  // namespace

Peripherals::Peripherals(World& world, bool reset_level)
    : world_(world),
      reset_level_(reset_level),
      spi_({.byte_clocked =
                [this] {
                  if (!frame_began_) {
                    frame_began_ = world_.clock().now();
                  }
                  world_.count_byte(core_clock_period * (std::int64_t{8} * settings_.divider));
                },
            .frame_ended =
                [this](std::vector<std::uint8_t> sent, std::vector<std::uint8_t> received) {
                  world_.log({.kind = Event_kind::frame,
                              .at = frame_began_.value_or(world_.clock().now()),
                              .sent = std::move(sent),
                              .received = std::move(received)});
                  frame_began_.reset();
                  if (!is_heard_) {
                    world_.report_misuse(
                        "a frame reached nobody: SPI0 has no pins or wrong settings");
                  }
                  world_.look_at_antenna();
                  world_.save_if_changed();
                },
            .misuse = [this](const std::string& what) { world_.report_misuse(what); }}) {
  bcm2835_peripherals_base = BCM2835_PERI_BASE;
  bcm2835_peripherals_size = BCM2835_PERI_SIZE;
  bcm2835_spi0 = unmapped();
}

bool Peripherals::map() {
  world_.take_over();
  is_mapped_ = world_.is_usable() && !world_.faults().fails_call(Fault_kind::no_board, init_calls_);
  ++init_calls_;
  bcm2835_spi0 = is_mapped_ ? register_block.data() : unmapped();
  return is_mapped_;
}

bool Peripherals::unmap() {
  const bool was_mapped = std::exchange(is_mapped_, false);
  bcm2835_spi0 = unmapped();
  return was_mapped;
}

bool Peripherals::begin_spi() {
  if (!is_mapped("bcm2835_spi_begin") ||
      world_.faults().fails_call(Fault_kind::no_spi, begin_calls_++)) {
    return false;
  }
  has_spi_pins_ = true;
  // The library clears the whole control register; the clock divider is a register of its own.
  set_spi({.divider = settings_.divider});
  spi_.write(BCM2835_SPI0_CS / 4, BCM2835_SPI0_CS_CLEAR);
  return true;
}

void Peripherals::end_spi() {
  has_spi_pins_ = false;
  connect();
}

void Peripherals::set_function(std::uint8_t pin, bool is_output) {
  if (pin == reset_pin) {
    reset_is_output_ = is_output;
    set_level(pin, reset_level_);
  }
}

void Peripherals::set_level(std::uint8_t pin, bool is_high) {
  if (pin != reset_pin) {
    return;
  }
  reset_level_ = is_high;
  if (reset_is_output_) {
    world_.device().reset_line(is_high);
    world_.save_if_changed();
  }
}

void Peripherals::set_spi(const Spi_settings& settings) {
  settings_ = settings;
  if (settings_.divider == 0 || settings_.divider > slowest_divider) {
    settings_.divider = slowest_divider;
  }
  connect();
}

void Peripherals::connect() {
  is_heard_ = has_spi_pins_ && settings_.is_most_significant_first && settings_.mode == 0 &&
              settings_.chip_select == 0 && settings_.active_level == 0 &&
              settings_.divider >= fastest_divider;
  spi_.connect(is_heard_ ? &world_.device() : nullptr);
}

bool Peripherals::is_mapped(const char* caller) {
  if (!is_mapped_) {
    world_.report_misuse(std::string(caller) + " without bcm2835_init");
  }
  return is_mapped_;
}

}  // namespace sim

using sim::Event_kind;

namespace {

using Spi_settings = sim::Peripherals::Spi_settings;

template <class Change>
void change_spi(const char* caller, Change change) {
  sim::Peripherals& board = sim::peripherals();
  if (board.is_mapped(caller)) {
    Spi_settings settings = board.spi_settings();
    change(settings);
    board.set_spi(settings);
  }
}

/// The word of SPI0 at `address`; nothing, and a violation, for memory that is not SPI0's.
std::optional<std::size_t> word_at(const volatile uint32_t* address, const char* caller) {
  if (sim::peripherals().is_mapped(caller)) {
    const auto* begin = register_block.data();
    const std::less<> is_before;
    if (!is_before(address, begin) && is_before(address, begin + register_block.size())) {
      return static_cast<std::size_t>(address - begin);
    }
    sim::world().report_misuse(std::string(caller) + " outside SPI0");
  }
  return std::nullopt;
}

}  // namespace

int bcm2835_init(void) {
  sim::log(Event_kind::init);
  return sim::peripherals().map() ? 1 : 0;
}

int bcm2835_close(void) {
  sim::log(Event_kind::close);
  return sim::peripherals().unmap() ? 1 : 0;
}

void bcm2835_gpio_fsel(uint8_t pin, uint8_t mode) {
  sim::log(Event_kind::fsel, pin, mode);
  if (sim::peripherals().is_mapped("bcm2835_gpio_fsel")) {
    sim::peripherals().set_function(pin, mode == BCM2835_GPIO_FSEL_OUTP);
  }
}

void bcm2835_gpio_set_pud(uint8_t pin, uint8_t pud) {
  sim::log(Event_kind::pud, pin, pud);
  (void)sim::peripherals().is_mapped("bcm2835_gpio_set_pud");
}

void bcm2835_gpio_write(uint8_t pin, uint8_t on) {
  sim::log(Event_kind::gpio, pin, on == LOW ? 0 : 1);
  if (sim::peripherals().is_mapped("bcm2835_gpio_write")) {
    sim::peripherals().set_level(pin, on != LOW);
  }
}

int bcm2835_spi_begin(void) {
  sim::log(Event_kind::spi_begin);
  return sim::peripherals().begin_spi() ? 1 : 0;
}

void bcm2835_spi_end(void) {
  sim::log(Event_kind::spi_end);
  if (sim::peripherals().is_mapped("bcm2835_spi_end")) {
    sim::peripherals().end_spi();
  }
}

void bcm2835_spi_setBitOrder(uint8_t order) {
  sim::log(Event_kind::bit_order, order);
  change_spi("bcm2835_spi_setBitOrder", [order](Spi_settings& settings) {
    settings.is_most_significant_first = order == BCM2835_SPI_BIT_ORDER_MSBFIRST;
  });
}

void bcm2835_spi_setDataMode(uint8_t mode) {
  sim::log(Event_kind::mode, mode);
  change_spi("bcm2835_spi_setDataMode", [mode](Spi_settings& settings) { settings.mode = mode; });
}

void bcm2835_spi_setClockDivider(uint16_t divider) {
  sim::log(Event_kind::divider, divider);
  change_spi("bcm2835_spi_setClockDivider",
             [divider](Spi_settings& settings) { settings.divider = divider; });
}

void bcm2835_spi_chipSelect(uint8_t cs) {
  sim::log(Event_kind::cs, cs);
  change_spi("bcm2835_spi_chipSelect", [cs](Spi_settings& settings) { settings.chip_select = cs; });
}

void bcm2835_spi_setChipSelectPolarity(uint8_t cs, uint8_t active) {
  sim::log(Event_kind::cs_polarity, cs, active);
  change_spi("bcm2835_spi_setChipSelectPolarity", [cs, active](Spi_settings& settings) {
    if (cs == BCM2835_SPI_CS0) {
      settings.active_level = active;
    }
  });
}

void bcm2835_spi_transfern(char* buf, uint32_t len) {
  constexpr std::size_t control = BCM2835_SPI0_CS / 4;
  constexpr std::size_t fifo = BCM2835_SPI0_FIFO / 4;
  sim::Peripherals& board = sim::peripherals();
  if (!board.is_mapped("bcm2835_spi_transfern")) {
    std::fill_n(buf, len, char{0});
    return;
  }
  sim::Spi0& spi = board.spi();
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
  sim::log(Event_kind::delay_ms, millis);
  sim::world().clock().wait(std::chrono::milliseconds(millis));
}

void bcm2835_delayMicroseconds(uint64_t micros) {
  sim::log(Event_kind::delay_us, micros);
  sim::world().clock().wait(
      std::chrono::microseconds(static_cast<std::chrono::microseconds::rep>(micros)));
}

uint32_t bcm2835_peri_read(volatile uint32_t* paddr) {
  const auto word = word_at(paddr, "bcm2835_peri_read");
  return word ? sim::peripherals().spi().read(*word) : 0;
}

void bcm2835_peri_write(volatile uint32_t* paddr, uint32_t value) {
  if (const auto word = word_at(paddr, "bcm2835_peri_write")) {
    sim::peripherals().spi().write(*word, value);
  }
}

void bcm2835_peri_set_bits(volatile uint32_t* paddr, uint32_t value, uint32_t mask) {
  bcm2835_peri_write(paddr, (bcm2835_peri_read(paddr) & ~mask) | (value & mask));
}
