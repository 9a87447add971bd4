// SPDX-License-Identifier: GPL-3.0-or-later
//
// A frame while the pins are not SPI pins reaches nobody and reads zeros. A full
// receive FIFO stops the clock, so that no received byte is ever lost.
#include "sim/peripherals.h"

#include <string>
#include <utility>

#include "sim/board.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t reset_pin = 23;
constexpr Time core_clock_period = 4ns;        // 250 MHz
constexpr std::uint32_t fastest_divider = 26;  // the receiver takes 10 MHz at most

constexpr std::size_t control_word = 0;
constexpr std::size_t fifo_word = 1;

constexpr std::uint32_t clear_transmit = 0x10;
constexpr std::uint32_t clear_receive = 0x20;
constexpr std::uint32_t transfer_active = 0x80;
constexpr std::uint32_t transfer_done = 0x10000;
constexpr std::uint32_t receive_has_data = 0x20000;
constexpr std::uint32_t transmit_has_room = 0x40000;

constexpr std::uint32_t computed_bits =
    clear_transmit | clear_receive | transfer_done | receive_has_data | transmit_has_room;

}  // namespace

bool Peripherals::map() {
  is_mapped_ = board_.is_usable() && !board_.faults.has(Fault_kind::no_board);
  return is_mapped_;
}

bool Peripherals::unmap() { return std::exchange(is_mapped_, false); }

bool Peripherals::begin_spi() {
  if (board_.faults.has(Fault_kind::no_spi)) return false;
  has_spi_pins_ = true;
  // The library clears the whole control register; the clock divider is a register of its own.
  spi = {.divider = spi.divider};
  write_control(clear_transmit | clear_receive);
  return true;
}

void Peripherals::end_spi() { has_spi_pins_ = false; }

bool Peripherals::is_mapped(const std::string& call) {
  if (!is_mapped_) board_.report_violation(call + " without bcm2835_init");
  return is_mapped_;
}

void Peripherals::set_function(std::uint8_t pin, bool is_output) {
  if (pin != reset_pin) return;
  reset_is_output_ = is_output;
  set_level(pin, reset_level_);
}

void Peripherals::set_level(std::uint8_t pin, bool is_high) {
  if (pin != reset_pin) return;
  reset_level_ = is_high;
  if (!reset_is_output_) return;
  board_.device().reset_line(is_high);
  board_.save_if_changed();
}

bool Peripherals::is_heard() const {
  return has_spi_pins_ && spi.is_most_significant_first && spi.mode == 0 && spi.chip_select == 0 &&
         spi.active_level == 0 && spi.divider >= fastest_divider;
}

std::uint32_t Peripherals::read(std::size_t word) {
  if (word == control_word) {
    shift_one();
    const bool is_active = (control_ & transfer_active) != 0;
    return control_ | (is_active && transmit_.empty() ? transfer_done : 0) |
           (receive_.empty() ? 0 : receive_has_data) |
           (transmit_.size() < fifo_bytes ? transmit_has_room : 0);
  }
  if (word != fifo_word || receive_.empty()) {
    board_.report_violation("a register other than CS was read, or the receive FIFO while empty");
    return 0;
  }
  const std::uint8_t byte = receive_.front();
  receive_.pop_front();
  return byte;
}

void Peripherals::write(std::size_t word, std::uint32_t value) {
  if (word == control_word) {
    write_control(value);
  } else if (word == fifo_word && transmit_.size() < fifo_bytes) {
    transmit_.push_back(static_cast<std::uint8_t>(value));
  } else {
    board_.report_violation(
        "a byte was written to another register, or to a full transmit FIFO, and lost");
  }
}

void Peripherals::write_control(std::uint32_t value) {
  if ((value & clear_transmit) != 0) transmit_.clear();
  if ((value & clear_receive) != 0) receive_.clear();
  const bool was_active = (control_ & transfer_active) != 0;
  const bool is_active = (value & transfer_active) != 0;
  control_ = value & ~computed_bits;
  if (is_active && !was_active) {
    frame_began_ = board_.clock.now();
    device_ = is_heard() ? &board_.device() : nullptr;
    if (device_ != nullptr) device_->select();
  }
  if (was_active && !is_active) end_frame();
}

void Peripherals::end_frame() {
  if (!transmit_.empty()) {
    board_.report_violation("chip select was released before the last byte was out");
  }
  if (device_ != nullptr) device_->deselect();
  board_.log({.at = frame_began_,
              .sent = std::exchange(sent_, {}),
              .received = std::exchange(received_, {})});
  if (device_ == nullptr) {
    board_.report_violation("a frame reached nobody: SPI0 has no pins or wrong settings");
  }
  board_.look_at_antenna();
  board_.save_if_changed();
}

void Peripherals::shift_one() {
  if ((control_ & transfer_active) == 0 || transmit_.empty() || receive_.size() >= fifo_bytes) {
    return;
  }
  const std::uint8_t mosi = transmit_.front();
  transmit_.pop_front();
  board_.count_byte(core_clock_period * (std::int64_t{8} * spi.divider));
  const std::uint8_t miso = device_ != nullptr ? device_->exchange(mosi) : undriven_byte;
  receive_.push_back(miso);
  sent_.push_back(mosi);
  received_.push_back(miso);
}

}  // namespace sim
