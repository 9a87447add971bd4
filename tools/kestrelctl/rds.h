// SPDX-License-Identifier: GPL-3.0-or-later
//
// RDS (IEC 62106): what an FM station says in its groups. Nothing is believed that an error may
// have made: what came without error counts at once, what was corrected when it comes again alike.
#pragma once

#include <algorithm>
#include <array>
#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kestrelctl/rds_text.h"

namespace kestrelctl {

/// One group as the receiver passes it on.
struct Rds_group {
  std::array<std::uint16_t, 4> blocks = {};  ///< A to D
  /// Bit errors in each block: 0 none, 1 one or two corrected, 2 three to five corrected, 3 more
  /// than can be corrected.
  std::array<std::uint8_t, 4> errors = {};
};

/// Clock time at the station.
struct Rds_time {
  std::chrono::local_time<std::chrono::minutes> local;
  std::chrono::minutes utc_offset{0};  ///< local time less UTC
  bool operator==(const Rds_time&) const = default;
};

/// What is known of the station. Text is harmless UTF-8, empty before it has come whole.
struct Rds_state {
  std::optional<std::uint16_t> pi;
  std::string ps;                               ///< programme service name, eight columns
  std::string radiotext;                        ///< the last one that was complete
  std::string title;                            ///< of what plays, as `radiotext` names it
  std::string artist;                           ///< likewise
  std::optional<std::uint8_t> pty;              ///< programme type, 0 to 31
  std::optional<bool> tp;                       ///< traffic programme
  std::optional<bool> ta;                       ///< traffic announcement
  std::vector<std::uint32_t> alternatives_khz;  ///< in the order received
  std::optional<Rds_time> time;                 ///< as of the last group that told it

  /// PS without the blanks around it.
  [[nodiscard]] std::string name() const {
    const auto first = std::min(ps.find_first_not_of(' '), ps.size());
    return ps.substr(first, ps.find_last_not_of(' ') + 1 - first);
  }
};

class Rds_decoder {
 public:
  /// Take the next group. For groups that the receiver has dropped, one of which no block could be
  /// corrected.
  void feed(const Rds_group& group);
  /// Forget the station: another one is tuned.
  void reset() { *this = {}; }
  const Rds_state& state() const { return state_; }

 private:
  static constexpr std::size_t frequency_codes = 205;  ///< those below it are frequencies

  void decode(const Rds_group& group);
  void take_basics(const Rds_group& group);
  void take_alternatives(const Rds_group& group);
  void take_radiotext(const Rds_group& group);
  void take_application(const Rds_group& group);
  void take_clock(const Rds_group& group);
  void take_tags(const Rds_group& group);

  Rds_state state_;
  Confirmed<std::uint16_t> pi_;
  std::optional<Rds_group> stranger_;  ///< the last group, if its PI was another one
  Confirmed<unsigned> programme_;      ///< TP and PTY
  Confirmed<bool> announcement_;       ///< TA
  Rds_text ps_{4};
  std::bitset<frequency_codes> doubtful_frequencies_;
  Confirmed<unsigned> text_kind_;  ///< version of the groups and A/B flag of the RadioText
  Rds_text radiotext_{Rds_text::most_pairs, 2};
  std::u32string characters_;       ///< of the state's RadioText, as its tags count them
  Confirmed<unsigned> tags_group_;  ///< type and version of the groups with RadioText Plus
  Confirmed<std::uint64_t> tags_;
  unsigned item_toggle_ = 0;
};

}  // namespace kestrelctl
