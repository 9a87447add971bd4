// SPDX-License-Identifier: GPL-3.0-or-later
//
// An open file that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace kestrelctl {

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  /// Negative: none.
  [[nodiscard]] int number() const { return number_; }
  void close() {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
  }

 private:
  int number_;
};

}  // namespace kestrelctl
