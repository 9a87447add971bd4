// SPDX-License-Identifier: GPL-3.0-or-later
//
// The RDS decoder: real groups of the tuned station (0A programme service name
// and alternative frequencies, 2A radiotext, 4A clock time, 3A and 12A RadioText
// Plus) arriving in a FIFO at the rate of the subcarrier.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <string>

#include "sim/fm_reception.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

// 104 bits at 1187.5 bit/s, and the few groups that block synchronisation takes.
constexpr Time group_time = 87'579us;
constexpr Time sync_time = 150ms;
constexpr std::uint32_t fifo_groups = 14;

constexpr std::uint16_t fifo_level_property = 0x3C01;
constexpr std::uint16_t decoder_property = 0x3C02;
constexpr std::uint16_t emphasis_property = 0x3900;
constexpr std::uint16_t decoder_on = 0x0001;
constexpr std::uint16_t emphasis_for_rds = 0x3900;

constexpr std::uint8_t clean_snr_db = 18;

using Group = std::array<std::uint16_t, 4>;

/// Group type and version, as the five highest bits of block B have them.
enum Group_type : std::uint8_t {
  type_0a = 0,
  type_2a = 4,
  type_3a = 6,
  type_4a = 8,
  type_12a = 24
};

/// Block B: group type, the flags that every group repeats, and the group's own five bits.
std::uint16_t block_b(const Fm_station& station, Group_type type, unsigned low_bits) {
  return static_cast<std::uint16_t>(unsigned{type} << 11 | (station.tp ? 1U : 0U) << 10 |
                                    (station.pty & 0x1FU) << 5 | (low_bits & 0x1FU));
}

/// Two characters of a text that is filled up with blanks.
std::uint16_t characters(const std::string& text, std::size_t at) {
  const auto character = [&text](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : unsigned{' '};
  };
  return static_cast<std::uint16_t>(character(at) << 8 | character(at + 1));
}

/// Alternative frequencies go out in pairs, the first of a list with their number.
std::uint16_t alternatives(const Fm_station& station, std::size_t segment) {
  constexpr unsigned count_base = 224;
  constexpr unsigned filler = 205;
  constexpr std::uint32_t first_khz = 87500;
  const auto& list = station.alternatives_khz;
  const auto code = [&list](std::size_t i) {
    return i < list.size() ? (list[i] - first_khz) / 100 & 0xFFU : filler;
  };
  const std::size_t most = std::min<std::size_t>(list.size(), 8);
  const unsigned first =
      segment == 0 ? count_base + static_cast<unsigned>(most) : code(2 * segment - 1);
  return static_cast<std::uint16_t>(first << 8 | code(2 * segment));
}

Group name_group(const Fm_station& station, std::uint32_t number) {
  constexpr unsigned music = 0x08;
  constexpr unsigned dynamic_pty = 0x04;
  const unsigned segment = number / 2 % 4;
  const unsigned decoder = segment == 0 ? dynamic_pty : 0;
  const unsigned announcement = station.ta ? 0x10 : 0;
  return {station.pi, block_b(station, type_0a, announcement | music | decoder | segment),
          alternatives(station, segment), characters(station.ps, std::size_t{segment} * 2)};
}

// Texts take turns; the A/B flag, and the item's toggle bit, differ from one to the next.
constexpr std::uint32_t cycle_groups = 8;
constexpr std::uint32_t text_groups = 30 * cycle_groups;

struct Turn {
  Text text;
  unsigned toggle = 0;
  std::uint32_t number = 0;  ///< of the group within the turn
};

Turn turn_at(const Fm_station& station, std::uint32_t number) {
  const std::size_t turn = number / text_groups;
  const std::size_t count = station.texts.size();
  return {.text = count == 0 ? Text{} : station.texts[turn % count],
          .toggle = count > 1 ? static_cast<unsigned>(turn % 2) : 0U,
          .number = number % text_groups};
}

bool has_tags(const Fm_station& station) {
  return std::ranges::any_of(station.texts, [](const Text& text) { return !text.title.empty(); });
}

Group text_group(const Fm_station& station, std::uint32_t number) {
  constexpr std::size_t longest_text = 64;
  const Turn turn = turn_at(station, number);
  // A carriage return ends a text that is shorter.
  const std::string text = (turn.text.characters + '\r').substr(0, longest_text);
  const auto segments = static_cast<std::uint32_t>((text.size() + 3) / 4);
  // The other half of a cycle's uneven groups belongs to the tags.
  const std::uint32_t in_cycle = has_tags(station) ? 2 : 4;
  const std::uint32_t sent = turn.number / cycle_groups * in_cycle + turn.number % cycle_groups / 2;
  const unsigned segment = sent % segments;
  return {station.pi, block_b(station, type_2a, turn.toggle << 4 | segment),
          characters(text, std::size_t{segment} * 4),
          characters(text, std::size_t{segment} * 4 + 2)};
}

/// RadioText Plus is announced as the application of group 12A.
Group application_group(const Fm_station& station) {
  constexpr std::uint16_t radiotext_plus = 0x4BD7;
  return {station.pi, block_b(station, type_3a, type_12a), 0, radiotext_plus};
}

/// Type, start and length of the tags for title and artist, as one number of 37 bits.
Group tags_group(const Fm_station& station, std::uint32_t number) {
  constexpr std::uint64_t item_title = 1;
  constexpr std::uint64_t item_artist = 4;
  const Turn turn = turn_at(station, number);
  const auto tag = [&turn](std::uint64_t type, const std::string& part) {
    const std::size_t at = turn.text.characters.find(part);
    const bool is_there = !part.empty() && at != std::string::npos;
    return is_there ? type << 12 | at << 6 | (part.size() - 1) : std::uint64_t{0};
  };
  const std::uint64_t running = turn.text.title.empty() ? 0 : 1;
  // The second tag's length has 5 bits only.
  const std::uint64_t artist = tag(item_artist, turn.text.artist);
  const std::uint64_t bits = std::uint64_t{turn.toggle} << 36 | running << 35 |
                             tag(item_title, turn.text.title) << 17 | artist >> 6 << 5 |
                             std::min<std::uint64_t>(artist & 0x3F, 0x1F);
  return {station.pi, block_b(station, type_12a, static_cast<unsigned>(bits >> 32)),
          static_cast<std::uint16_t>(bits >> 16), static_cast<std::uint16_t>(bits)};
}

Group clock_group(const Fm_station& station, std::chrono::sys_seconds utc) {
  // Days are counted from 17 November 1858, the epoch of the modified Julian date.
  constexpr auto first_day = std::chrono::sys_days{std::chrono::year{1858} / 11 / 17};
  constexpr unsigned west = 0x20;
  const auto today = std::chrono::floor<std::chrono::days>(utc);
  const auto day = static_cast<unsigned>((today - first_day).count());
  const std::chrono::hh_mm_ss time(utc - today);
  const auto hour = static_cast<unsigned>(time.hours().count());
  const auto minute = static_cast<unsigned>(time.minutes().count());
  const int offset = station.half_hours_east;
  const auto half_hours = static_cast<unsigned>(std::abs(offset)) | (offset < 0 ? west : 0);
  return {station.pi, block_b(station, type_4a, day >> 15),
          static_cast<std::uint16_t>((day & 0x7FFF) << 1 | hour >> 4),
          static_cast<std::uint16_t>((hour & 0x0F) << 12 | minute << 6 | half_hours)};
}

struct Rds {
  Fm_station station;
  bool is_synchronized = false;
  Time synchronized_at{};
  std::uint32_t arrived = 0;  ///< groups since synchronisation
  std::uint32_t waiting = 0;  ///< groups that nobody has read, those lost included
};

Group group_at(const Chip& chip, const Rds& now, std::uint32_t number) {
  constexpr std::uint32_t first_clock = 7;
  const Fm_station& station = now.station;
  const auto minute_at = [&](std::uint32_t group) {
    return std::chrono::floor<std::chrono::minutes>(
        chip.clock.utc(now.synchronized_at + group_time * std::int64_t{group}));
  };
  // The time is that of the minute which has just begun; a receiver that has just tuned in is told
  // the present one.
  if (number == first_clock || (number > 0 && minute_at(number) != minute_at(number - 1))) {
    return clock_group(station, minute_at(number));
  }
  const std::uint32_t in_cycle = number % cycle_groups;
  if (in_cycle % 2 == 0) {
    return name_group(station, number);
  }
  if (in_cycle >= cycle_groups / 2 && has_tags(station)) {
    return in_cycle == cycle_groups - 1 ? tags_group(station, number) : application_group(station);
  }
  return text_group(station, number);
}

/// A group as it is received: its blocks, and their bit errors, two bits each, block A in the
/// highest ones. What could not be corrected is noise.
std::uint8_t receive(const Chip& chip, const Fm_station& station, std::uint32_t number,
                     Group& group) {
  // One or a few bits, corrected.
  static constexpr std::array<std::uint8_t, 5> weak = {0x00, 0x10, 0x04, 0x00, 0x81};
  constexpr unsigned beyond_correction = 3;
  unsigned errors = station.snr_db >= clean_snr_db ? 0U : weak[number % weak.size()];
  for (std::size_t i = 0; i < group.size(); ++i) {
    const auto seed = chip.air.rds_error_seed * 0x9E3779B9U + number * 4 + i;
    std::minstd_rand random(static_cast<std::uint32_t>(seed));
    random.discard(3);
    if (random() % 100 < chip.air.rds_errors_percent) {
      group[i] = static_cast<std::uint16_t>(random());
      errors |= beyond_correction << (6 - 2 * i);
    }
  }
  return static_cast<std::uint8_t>(errors);
}

/// The decoder follows the station from the tune on; the properties only open it, so that the first
/// look after enabling it need not come too early.
Rds rds(const Chip& chip) {
  const Chip_state& state = chip.state;
  Rds result;
  const Fm_reception here = fm_reception(chip);
  result.station = here.station;
  result.synchronized_at = std::max(state.complete_at, state.signal_since) + sync_time;
  result.is_synchronized = here.is_valid && here.station.has_rds &&
                           chip.now() >= result.synchronized_at &&
                           property(state, decoder_property) == decoder_on &&
                           property(state, emphasis_property) == emphasis_for_rds;
  if (result.is_synchronized) {
    result.arrived = static_cast<std::uint32_t>((chip.now() - result.synchronized_at) / group_time);
    result.waiting = result.arrived - std::min(result.arrived, state.groups_taken);
  }
  return result;
}

Refusal rds_status(Chip& chip, Frame frame) {
  constexpr std::uint8_t acknowledge = 0x01;
  constexpr std::uint8_t empty_fifo = 0x02;
  constexpr std::uint8_t status_only = 0x04;
  constexpr std::uint8_t reserved_interrupts = 0xE4;
  constexpr std::uint8_t reserved_states = 0xE4;
  constexpr std::uint8_t reserved_programme = 0xC0;
  constexpr std::size_t reply_bytes = 16;
  Chip_state& state = chip.state;
  const Rds now = rds(chip);
  const Fm_station& station = now.station;
  const bool has_overrun = now.waiting > fifo_groups;
  if (has_overrun || (frame[1] & empty_fifo) != 0) {
    state.groups_taken = now.arrived - ((frame[1] & empty_fifo) != 0 ? 0 : fifo_groups);
  }
  const std::uint32_t kept =
      std::min(now.arrived - std::min(now.arrived, state.groups_taken), fifo_groups);
  const bool has_group = kept > 0 && (frame[1] & status_only) == 0;
  const bool is_new =
      now.is_synchronized && is_pending(chip, now.synchronized_at, state.rds_seen_at);
  auto& out = chip.reply;
  out.push_back(join(reserved_interrupts, flag(is_new, 4), flag(is_new, 3), flag(is_new, 1),
                     flag(kept >= property(state, fifo_level_property) && kept > 0, 0)));
  out.push_back(join(reserved_states, flag(now.is_synchronized, 4), flag(now.is_synchronized, 3),
                     flag(now.is_synchronized, 1), flag(has_overrun, 0)));
  out.push_back(now.is_synchronized ? join(reserved_programme, flag(station.tp, 5),
                                           static_cast<std::uint8_t>(station.pty & 0x1F))
                                    : reserved_programme);
  out.push_back(reserved_byte);
  append(out, now.is_synchronized ? station.pi : 0U, 2);
  out.push_back(static_cast<std::uint8_t>(has_group ? kept - 1 : kept));
  if (has_group) {
    Group group = group_at(chip, now, state.groups_taken);
    out.push_back(receive(chip, station, state.groups_taken, group));
    for (const std::uint16_t block : group) {
      append(out, block, 2);
    }
    ++state.groups_taken;
  }
  out.resize(reply_bytes, 0);
  if ((frame[1] & acknowledge) != 0) {
    state.rds_seen_at = chip.now();
  }
  return nullptr;
}

constexpr auto commands = std::to_array<Command>({
    {0x34, "FM_RDS_STATUS", 0x07, 2, 2, in_fmhd, 0us, rds_status},
});

}  // namespace

std::span<const Command> rds_commands() { return commands; }

Interrupts rds_interrupts(const Chip& chip) {
  constexpr unsigned rds_received = 2;
  return {.status0 = flag(rds(chip).waiting > 0, rds_received)};
}

}  // namespace sim
