// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/rds_text.h"

#include <utility>

namespace kestrelctl {

void Rds_text::begin_group(std::size_t address, bool is_clean) {
  if (address < address_) ++pass_;
  if (address == 0 && address_ > 0 && is_clean && !is_gap_) {
    turning_point_ = (address_ + 1) * pairs_per_group_;
  }
  address_ = address;
  is_gap_ = !is_clean;
}

void Rds_text::put(std::size_t index, std::uint16_t characters, bool is_clean) {
  const auto before = pairs_[index].characters.value();
  if (!pairs_[index].characters.offer(characters, is_clean)) return;
  const bool goes_on = open_end_ > 0 && index >= open_end_;
  if ((before && *before != characters) || goes_on) {
    // Another text has begun, and whatever came before may be of the old one.
    pairs_ = {};
    pairs_[index].characters.offer(characters, true);
    turning_point_ = 0;
    open_end_ = 0;
    whole_.reset();
  }
  ++pairs_[index].times;
  pairs_[index].pass = pass_;
  complete();
}

void Rds_text::complete() {
  constexpr int end_of_text = 0x0D;
  std::string text;
  bool is_repeated = true;
  for (std::size_t i = 0; i < size_; ++i) {
    const auto& [characters, times, pass] = pairs_[i];
    // Pairs of one pass are of one text. So are those that have come twice, since a text that took
    // the place of another one would have contradicted it by then.
    if (!characters.value() && i > 0 && i == turning_point_ && is_repeated) {
      // Some texts just end, and begin again.
      open_end_ = i;
      break;
    }
    if (!characters.value() || (times < 2 && pass != pass_)) return;
    is_repeated = is_repeated && times >= 2;
    for (const int character : {*characters.value() >> 8, *characters.value() & 0xFF}) {
      if (character == end_of_text && pairs_per_group_ > 0) {
        whole_ = std::move(text);
        return;
      }
      text += static_cast<char>(character);
    }
  }
  whole_ = std::move(text);
}

}  // namespace kestrelctl
