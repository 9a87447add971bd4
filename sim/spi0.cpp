// SPDX-License-Identifier: GPL-3.0-or-later
//
// The controller's registers. Chip select follows the TA bit; a full receive FIFO
// stops the clock, so that no received byte is ever lost.
#include "sim/spi0.h"

#include <utility>

namespace sim {
namespace {

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

Spi0::Spi0(Listener listener) : listener_(std::move(listener)) {}

void Spi0::connect(Spi_device* device) { device_ = device; }

std::uint32_t Spi0::read(std::size_t word) {
  if (word == control_word) {
    shift_one();
    const bool is_active = (control_ & transfer_active) != 0;
    return control_ | (is_active && transmit_.empty() ? transfer_done : 0) |
           (receive_.empty() ? 0 : receive_has_data) |
           (transmit_.size() < fifo_bytes ? transmit_has_room : 0);
  }
  if (word == fifo_word) {
    if (receive_.empty()) {
      listener_.misuse("the receive FIFO was read while empty");
      return 0;
    }
    const std::uint8_t byte = receive_.front();
    receive_.pop_front();
    return byte;
  }
  return word < words ? other_words_[word] : 0;
}

void Spi0::write(std::size_t word, std::uint32_t value) {
  if (word == control_word) {
    write_control(value);
  } else if (word == fifo_word) {
    if (transmit_.size() < fifo_bytes) {
      transmit_.push_back(static_cast<std::uint8_t>(value));
    } else {
      listener_.misuse("a byte was written to a full transmit FIFO and lost");
    }
  } else if (word < words) {
    other_words_[word] = value;
  }
}

void Spi0::write_control(std::uint32_t value) {
  if ((value & clear_transmit) != 0) {
    transmit_.clear();
  }
  if ((value & clear_receive) != 0) {
    receive_.clear();
  }
  const bool was_active = (control_ & transfer_active) != 0;
  const bool is_active = (value & transfer_active) != 0;
  control_ = value & ~computed_bits;
  if (is_active && !was_active && device_ != nullptr) {
    device_->select();
  }
  if (was_active && !is_active) {
    if (!transmit_.empty()) {
      listener_.misuse("chip select was released before the last byte was out");
    }
    if (device_ != nullptr) {
      device_->deselect();
    }
    listener_.frame_ended(std::exchange(sent_, {}), std::exchange(received_, {}));
  }
}

void Spi0::shift_one() {
  if ((control_ & transfer_active) == 0 || transmit_.empty() || receive_.size() >= fifo_bytes) {
    return;
  }
  const std::uint8_t mosi = transmit_.front();
  transmit_.pop_front();
  listener_.byte_clocked();
  const std::uint8_t miso = device_ != nullptr ? device_->exchange(mosi) : undriven_byte;
  receive_.push_back(miso);
  sent_.push_back(mosi);
  received_.push_back(miso);
}

}  // namespace sim
