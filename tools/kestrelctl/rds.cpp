// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/rds.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

enum Block_letter : std::size_t { block_a, block_b, block_c, block_d };

constexpr std::uint8_t uncorrectable = 3;

// Types of groups: a number, and 0 for version A or 1 for B.
constexpr unsigned group_0a = 0 << 1;
constexpr unsigned group_0b = 0 << 1 | 1;
constexpr unsigned group_2a = 2 << 1;
constexpr unsigned group_2b = 2 << 1 | 1;
constexpr unsigned group_3a = 3 << 1;
constexpr unsigned group_4a = 4 << 1;
constexpr unsigned version_bit = 11;

/// `count` bits of a block from bit `lowest` on.
unsigned bits(const Rds_group& group, Block_letter block, unsigned lowest, unsigned count) {
  return static_cast<unsigned>(group.blocks[block]) >> lowest & ((1U << count) - 1U);
}
unsigned group_type(const Rds_group& group) { return bits(group, block_b, version_bit, 5); }

bool is_readable(const Rds_group& group, Block_letter block) {
  return group.errors[block] < uncorrectable;
}
bool is_clean(const Rds_group& group, std::initializer_list<Block_letter> blocks) {
  return std::ranges::all_of(blocks,
                             [&group](Block_letter block) { return group.errors[block] == 0; });
}

struct Pi {
  std::uint16_t value;
  bool is_clean;
};
/// Groups of version B repeat the PI in block C; some stations have zeros there.
std::optional<Pi> read_pi(const Rds_group& group) {
  if (is_readable(group, block_a)) return Pi{group.blocks[block_a], is_clean(group, {block_a})};
  const bool is_repeated = is_clean(group, {block_b}) && bits(group, block_b, version_bit, 1) != 0;
  if (!is_repeated || !is_readable(group, block_c) || group.blocks[block_c] == 0) return {};
  return Pi{group.blocks[block_c], is_clean(group, {block_c})};
}

}  // namespace

void Rds_decoder::feed(const Rds_group& group) {
  if (const auto pi = read_pi(group)) {
    if (state_.pi && *state_.pi != pi->value) {
      // Another station has come through, or an error has gone unnoticed.
      if (!stranger_ || read_pi(*stranger_)->value != pi->value) {
        stranger_ = group;
        radiotext_.lose_group();
        return;
      }
      const auto first = *stranger_;
      reset();
      pi_.offer(pi->value, true);
      decode(first);
    }
    stranger_.reset();
    if (pi_.offer(pi->value, pi->is_clean)) state_.pi = pi->value;
  }
  decode(group);
}

void Rds_decoder::decode(const Rds_group& group) {
  // A group with errors may have been one of the RadioText, whatever it seems to be.
  if (!is_clean(group, {block_b})) radiotext_.lose_group();
  if (!is_readable(group, block_b)) return;
  if (programme_.offer(bits(group, block_b, 5, 6), is_clean(group, {block_b}))) {
    state_.tp = bits(group, block_b, 10, 1) != 0;
    state_.pty = static_cast<std::uint8_t>(bits(group, block_b, 5, 5));
  }
  const auto type = group_type(group);
  switch (type) {
    case group_0a:
    case group_0b:
      take_basics(group);
      break;
    case group_2a:
    case group_2b:
      take_radiotext(group);
      break;
    case group_3a:
      take_application(group);
      break;
    case group_4a:
      take_clock(group);
      break;
    default:
      if (tags_group_.value() == type) take_tags(group);
  }
}

/// 0A, 0B: name, traffic announcement, and in 0A alternative frequencies.
void Rds_decoder::take_basics(const Rds_group& group) {
  const bool is_certain = is_clean(group, {block_b});
  const auto address = bits(group, block_b, 0, 2);
  if (announcement_.offer(bits(group, block_b, 4, 1) != 0, is_certain)) {
    state_.ta = announcement_.value();
  }
  ps_.begin_group(address, is_certain);
  if (is_readable(group, block_d)) {
    ps_.put(address, group.blocks[block_d], is_clean(group, {block_b, block_d}));
    if (const auto& name = ps_.whole()) {
      state_.ps = pad(decode_label(*name, charset_ebu_latin), name->size());
    }
  }
  if (group_type(group) == group_0a && is_readable(group, block_c)) take_alternatives(group);
}

/// Two codes. A list begins with their number; in method B it goes on with pairs of the tuned
/// frequency and another one, which comes to the same frequencies.
void Rds_decoder::take_alternatives(const Rds_group& group) {
  constexpr unsigned medium_wave_follows = 250;
  constexpr std::uint32_t base_khz = 87'500;
  constexpr std::uint32_t step_khz = 100;
  const auto first = bits(group, block_c, 8, 8);
  const auto seen_before = doubtful_frequencies_;
  if (first == medium_wave_follows) return;
  for (const auto code : {first, bits(group, block_c, 0, 8)}) {
    if (code == 0 || code >= doubtful_frequencies_.size()) continue;
    const auto khz = base_khz + code * step_khz;
    auto& list = state_.alternatives_khz;
    if (std::ranges::find(list, khz) != list.end()) continue;
    if (is_clean(group, {block_b, block_c}) || seen_before[code]) list.push_back(khz);
    doubtful_frequencies_.set(code);
  }
}

/// 2A: four characters in blocks C and D; 2B: two in block D.
void Rds_decoder::take_radiotext(const Rds_group& group) {
  constexpr std::size_t pairs_of_b = 16;
  const bool is_b = group_type(group) == group_2b;
  const auto kind = bits(group, block_b, 4, 1) << 1 | bits(group, block_b, version_bit, 1);
  const auto kind_before = text_kind_.value();
  if (!text_kind_.offer(kind, is_clean(group, {block_b}))) return;
  if (kind != kind_before) {
    radiotext_ = is_b ? Rds_text(pairs_of_b, 1) : Rds_text(Rds_text::most_pairs, 2);
  }
  const std::size_t address = bits(group, block_b, 0, 4);
  radiotext_.begin_group(address, is_clean(group, {block_b}));
  const auto put = [&](std::size_t index, Block_letter block) {
    if (!is_readable(group, block)) return;
    radiotext_.put(index, group.blocks[block], is_clean(group, {block_b, block}));
  };
  if (is_b) {
    put(address, block_d);
  } else {
    put(2 * address, block_c);
    put(2 * address + 1, block_d);
  }
  if (!radiotext_.whole()) return;
  characters_ = decode_characters(*radiotext_.whole(), charset_ebu_latin);
  auto text = make_harmless(characters_);
  if (text == state_.radiotext) return;
  state_.radiotext = std::move(text);
  state_.title.clear();
  state_.artist.clear();
}

/// 3A: which application uses which type of groups.
void Rds_decoder::take_application(const Rds_group& group) {
  constexpr std::uint16_t radiotext_plus = 0x4BD7;
  if (!is_readable(group, block_d)) return;
  const bool is_certain = is_clean(group, {block_b, block_d});
  const auto type = bits(group, block_b, 0, 5);
  if (group.blocks[block_d] == radiotext_plus) {
    tags_group_.offer(type, is_certain);
  } else if (is_certain && tags_group_.value() == type) {
    tags_group_ = {};
  }
}

/// 4A. A time comes once, so that nothing but the absence of errors confirms it.
void Rds_decoder::take_clock(const Rds_group& group) {
  using namespace std::chrono;
  // Modified Julian dates.
  constexpr unsigned day_of_1970 = 40'587;
  constexpr unsigned day_of_2000 = 51'544;
  constexpr unsigned day_of_2100 = 88'069;
  constexpr unsigned most_offset_half_hours = 28;
  if (!is_clean(group, {block_b, block_c, block_d})) return;
  const auto day = bits(group, block_b, 0, 2) << 15 | bits(group, block_c, 1, 15);
  const auto hour = bits(group, block_c, 0, 1) << 4 | bits(group, block_d, 12, 4);
  const auto minute = bits(group, block_d, 6, 6);
  const auto offset = bits(group, block_d, 0, 5);
  const bool is_west = bits(group, block_d, 5, 1) != 0;
  if (day < day_of_2000 || day >= day_of_2100 || hour >= 24 || minute >= 60 ||
      offset > most_offset_half_hours) {
    return;
  }
  const auto utc_offset = minutes(30) * (is_west ? -1 : 1) * static_cast<int>(offset);
  state_.time = {
      .local = local_days(days(day - day_of_1970)) + hours(hour) + minutes(minute) + utc_offset,
      .utc_offset = utc_offset};
}

/// RadioText Plus: two parts of the text, what they are, and whether they are still on.
void Rds_decoder::take_tags(const Rds_group& group) {
  if (!is_readable(group, block_c) || !is_readable(group, block_d)) return;
  const std::uint64_t tags = std::uint64_t{bits(group, block_b, 0, 5)} << 32 |
                             std::uint64_t{group.blocks[block_c]} << 16 | group.blocks[block_d];
  if (!tags_.offer(tags, is_clean(group, {block_b, block_c, block_d}))) return;
  const auto item_toggle = bits(group, block_b, 4, 1);
  const bool is_item_running = bits(group, block_b, 3, 1) != 0;
  if (!is_item_running || item_toggle_ != item_toggle) {
    state_.title.clear();
    state_.artist.clear();
  }
  item_toggle_ = item_toggle;
  // Between two texts it is not known which one the tags are of.
  if (!is_item_running || !radiotext_.whole()) return;
  const auto read = [this](const Text_tag& tag) {
    read_tag(tag, characters_, state_.title, state_.artist);
  };
  read({.content_type = bits(group, block_b, 0, 3) << 3 | bits(group, block_c, 13, 3),
        .start = bits(group, block_c, 7, 6),
        .length_marker = bits(group, block_c, 1, 6)});
  read({.content_type = bits(group, block_c, 0, 1) << 5 | bits(group, block_d, 11, 5),
        .start = bits(group, block_d, 5, 6),
        .length_marker = bits(group, block_d, 0, 5)});
}

}  // namespace kestrelctl
