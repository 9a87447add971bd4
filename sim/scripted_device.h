// SPDX-License-Identifier: GPL-3.0-or-later
//
// A device for driver tests that answers from a script: one byte vector for each chip-select frame,
// whatever the host sends. What it was sent is in the board's event log.
#pragma once

#include <deque>
#include <functional>
#include <utility>
#include <vector>

#include "sim/spi_device.h"

namespace sim {

/// Byte i of the frame's MISO is byte i of the frame's answer, zero beyond its
/// end. A frame takes the next queued answer, or the default one when the queue
/// is empty. Usage: `chip.answer({0, 0x80, 0, 0, 0xC0}); sim::attach(chip);`
class Scripted_device final : public Spi_device {
 public:
  /// Queue the same answer for `frames` frames, reads and command writes alike.
  Scripted_device& answer(const std::vector<std::uint8_t>& bytes, std::size_t frames = 1) {
    queue_.insert(queue_.end(), frames, bytes);
    return *this;
  }
  /// The answer to every frame that finds the queue empty; at first all zeros.
  Scripted_device& by_default(std::vector<std::uint8_t> bytes) {
    default_ = std::move(bytes);
    return *this;
  }
  /// Answers still queued.
  std::size_t left() const { return queue_.size(); }

  void select() override {
    position_ = 0;
    current_ = queue_.empty() ? default_ : queue_.front();
    if (!queue_.empty()) queue_.pop_front();
  }
  std::uint8_t exchange(std::uint8_t mosi) override {
    const auto at = position_++;
    if (on_byte) on_byte(at, mosi);
    return at < current_.size() ? current_[at] : std::uint8_t{0};
  }
  void deselect() override {}
  void reset_line(bool is_high) override {
    if (on_reset_line) on_reset_line(is_high);
  }

  /// Called, if set, with each byte that comes in and its place in the frame, and with the level
  /// that the reset line takes.
  std::function<void(std::size_t, std::uint8_t)> on_byte = {};
  std::function<void(bool)> on_reset_line = {};

 private:
  std::deque<std::vector<std::uint8_t>> queue_;
  std::vector<std::uint8_t> default_;
  std::vector<std::uint8_t> current_;
  std::size_t position_ = 0;
};

}  // namespace sim
