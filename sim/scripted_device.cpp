// SPDX-License-Identifier: GPL-3.0-or-later
//
// The scripted device's queue: one answer a frame, zeros beyond its end.
#include "sim/scripted_device.h"

#include <utility>

namespace sim {

Scripted_device& Scripted_device::answer(std::vector<std::uint8_t> bytes) {
  queue_.push_back(std::move(bytes));
  return *this;
}

Scripted_device& Scripted_device::answer(const std::vector<std::uint8_t>& bytes,
                                         std::size_t frames) {
  queue_.insert(queue_.end(), frames, bytes);
  return *this;
}

Scripted_device& Scripted_device::by_default(std::vector<std::uint8_t> bytes) {
  default_ = std::move(bytes);
  return *this;
}

void Scripted_device::select() {
  position_ = 0;
  current_ = default_;
  if (!queue_.empty()) {
    current_ = std::move(queue_.front());
    queue_.pop_front();
  }
}

std::uint8_t Scripted_device::exchange(std::uint8_t /*mosi*/) {
  const std::size_t at = position_++;
  return at < current_.size() ? current_[at] : std::uint8_t{0};
}

void Scripted_device::deselect() {}

void Scripted_device::reset_line(bool /*high*/) {}

}  // namespace sim
