// SPDX-License-Identifier: GPL-3.0-or-later
//
// Text of RDS, which comes in pairs of characters over and over, some of them lost or wrong: the
// programme service name and RadioText. It counts when all of it has been received and no two of
// its parts may be of different texts.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kestrelctl {

/// A value that counts once it was received without error, or twice alike.
template <class Value>
class Confirmed {
 public:
  /// Whether `value` counts now.
  bool offer(Value value, bool is_clean) {
    if (is_clean || value_ == value || doubtful_ == value) {
      value_ = value;
      doubtful_.reset();
      return true;
    }
    doubtful_ = value;
    return false;
  }
  const std::optional<Value>& value() const { return value_; }

 private:
  std::optional<Value> value_;
  std::optional<Value> doubtful_;
};

class Rds_text {
 public:
  static constexpr std::size_t most_pairs = 32;

  /// A text of `pairs` pairs, at most 32. If groups carry `pairs_per_group` of them each, it may
  /// end before: with a carriage return, or where the groups begin again.
  explicit Rds_text(std::size_t pairs, std::size_t pairs_per_group = 0)
      : size_(pairs), pairs_per_group_(pairs_per_group) {}

  /// A group of this text begins, the `address`-th; `is_clean`: that is certain.
  void begin_group(std::size_t address, bool is_clean);
  /// A group has gone unread. It may have been one of this text.
  void lose_group() { is_gap_ = true; }
  /// Pair `index`, below `pairs`; its first character is in the upper byte.
  void put(std::size_t index, std::uint16_t characters, bool is_clean);

  /// The characters of the text, once and for as long as it is whole.
  const std::optional<std::string>& whole() const { return whole_; }

 private:
  struct Pair {
    Confirmed<std::uint16_t> characters;
    unsigned times = 0;  ///< received
    unsigned pass = 0;   ///< the last one of them
  };
  void complete();

  std::size_t size_;
  std::size_t pairs_per_group_;
  std::array<Pair, most_pairs> pairs_;
  unsigned pass_ = 0;  ///< through the addresses, upwards
  std::size_t address_ = 0;
  bool is_gap_ = true;             ///< between the last group of this text and the next
  std::size_t turning_point_ = 0;  ///< pairs before the addresses were seen to begin again
  std::optional<std::string> whole_;
  std::size_t open_end_ = 0;  ///< pairs of the whole text, if nothing but the turning ends it
};

}  // namespace kestrelctl
