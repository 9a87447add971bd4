// SPDX-License-Identifier: GPL-3.0-or-later
//
// The RDS decoder: real groups of the tuned station (0A programme service name
// and alternative frequencies, 2A radiotext, 4A clock time, 3A and 12A RadioText
// Plus) arriving in a FIFO at the rate of the subcarrier.
#include <algorithm>
#include <array>
#include <string>

#include "sim/receiver.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

// 104 bits at 1187.5 bit/s, and the few groups that block synchronisation takes.
constexpr Time group_time = 87'579us;
constexpr Time sync_time = 150ms;
constexpr std::uint32_t fifo_groups = 14;

constexpr std::uint32_t full_fifo_groups = 10;  // raises the flag
constexpr std::uint16_t decoder_property = 0x3C02;
constexpr std::uint16_t emphasis_property = 0x3900;
constexpr std::uint16_t decoder_on = 0x0001;
constexpr std::uint16_t emphasis_for_rds = 0x3900;

constexpr std::uint8_t clean_snr_db = 18;

using Group = std::array<std::uint16_t, 4>;

/// Group type and version, as the five highest bits of block B have them.
enum Group_type : unsigned { type_0a = 0, type_2a = 4, type_3a = 6, type_4a = 8, type_12a = 24 };

/// A group with the flags that every group repeats in block B, and the 37 bits of its own.
Group make_group(const Fm_station& station, Group_type type, std::uint64_t bits) {
  const unsigned block_b = type << 11 | (station.tp ? 1U : 0U) << 10 | (station.pty & 0x1FU) << 5 |
                           static_cast<unsigned>(bits >> 32 & 0x1F);
  return {station.pi, static_cast<std::uint16_t>(block_b), static_cast<std::uint16_t>(bits >> 16),
          static_cast<std::uint16_t>(bits)};
}

/// `count` characters of a text that is filled up with blanks.
std::uint64_t characters(const std::string& text, std::size_t at, std::size_t count) {
  std::uint64_t bits = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    bits = bits << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : unsigned{' '});
  }
  return bits;
}

/// Alternative frequencies go out in pairs, the first of a list with their number.
std::uint64_t alternatives(const Fm_station& station, std::size_t segment) {
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
  return first << 8 | code(2 * segment);
}

Group name_group(const Fm_station& station, std::uint32_t number) {
  constexpr std::uint64_t announcement = 0x10;
  constexpr std::uint64_t music = 0x08;
  constexpr std::uint64_t dynamic_pty = 0x04;
  const std::uint64_t segment = number / 2 % 4;
  const std::uint64_t flags =
      (station.ta ? announcement : 0) | music | (segment == 0 ? dynamic_pty : 0);
  return make_group(station, type_0a,
                    (flags | segment) << 32 |
                        alternatives(station, static_cast<std::size_t>(segment)) << 16 |
                        characters(station.ps, static_cast<std::size_t>(segment) * 2, 2));
}

// Texts take turns; the A/B flag, and the item's toggle bit, differ from one to the next.
constexpr std::uint32_t cycle_groups = 8;
constexpr std::uint32_t text_groups = 30 * cycle_groups;

struct Turn {
  Text text;
  std::uint64_t toggle = 0;
  std::uint32_t number = 0;  ///< of the group within the turn
};

Turn turn_at(const Fm_station& station, std::uint32_t number) {
  const std::size_t turn = number / text_groups;
  const std::size_t count = station.texts.size();
  return {.text = count == 0 ? Text{} : station.texts[turn % count],
          .toggle = count > 1 ? turn % 2 : 0,
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
  const std::uint64_t segment = sent % segments;
  return make_group(station, type_2a,
                    turn.toggle << 36 | segment << 32 |
                        characters(text, static_cast<std::size_t>(segment) * 4, 4));
}

/// RadioText Plus is announced as the application of group 12A.
Group application_group(const Fm_station& station) {
  constexpr std::uint64_t radiotext_plus = 0x4BD7;
  return make_group(station, type_3a, std::uint64_t{type_12a} << 32 | radiotext_plus);
}

/// Type, start and length of the tags for title and artist, as one number of 37 bits.
Group tags_group(const Fm_station& station, std::uint32_t number) {
  const Turn turn = turn_at(station, number);
  const auto tag = [&turn](std::uint64_t type, const std::string& part) {
    const std::size_t at = turn.text.characters.find(part);
    const bool is_there = !part.empty() && at != std::string::npos;
    return is_there ? type << 12 | at << 6 | (part.size() - 1) : std::uint64_t{0};
  };
  const std::uint64_t running = turn.text.title.empty() ? 0 : 1;
  // The second tag's length has 5 bits only.
  const std::uint64_t artist = tag(item_artist, turn.text.artist);
  const std::uint64_t bits = turn.toggle << 36 | running << 35 |
                             tag(item_title, turn.text.title) << 17 | artist >> 6 << 5 |
                             std::min<std::uint64_t>(artist & 0x3F, 0x1F);
  return make_group(station, type_12a, bits);
}

Group clock_group(const Fm_station& station, std::chrono::sys_seconds utc) {
  // Days are counted from 17 November 1858, the epoch of the modified Julian date.
  constexpr auto first_day = std::chrono::sys_days{std::chrono::year{1858} / 11 / 17};
  constexpr unsigned half_hours_east = 2;  // of local time
  const auto today = std::chrono::floor<std::chrono::days>(utc);
  const auto day = static_cast<unsigned>((today - first_day).count());
  const auto minutes = static_cast<unsigned>((utc - today).count() / 60);
  return make_group(station, type_4a,
                    std::uint64_t{day} << 17 | std::uint64_t{minutes / 60} << 12 |
                        minutes % 60 << 6 | half_hours_east);
}

struct Rds {
  Fm_station station;
  bool is_synchronized = false;
  Time synchronized_at{};
  std::uint32_t arrived = 0;  ///< groups since synchronisation
  std::uint32_t waiting = 0;  ///< groups that nobody has read, those lost included
};

Group group_at(const Receiver& chip, const Rds& now, std::uint32_t number) {
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
  if (in_cycle % 2 == 0) return name_group(station, number);
  if (in_cycle >= cycle_groups / 2 && has_tags(station)) {
    return in_cycle == cycle_groups - 1 ? tags_group(station, number) : application_group(station);
  }
  return text_group(station, number);
}

/// Corrected bit errors of a group's blocks, two bits each, block A in the highest ones.
std::uint8_t bit_errors(const Fm_station& station, std::uint32_t number) {
  static constexpr std::array<std::uint8_t, 5> weak = {0x00, 0x10, 0x04, 0x00, 0x81};
  return station.snr_db >= clean_snr_db ? std::uint8_t{0} : weak[number % weak.size()];
}

/// The decoder follows the station from the tune on; the properties only open it, so that the first
/// look after enabling it need not come too early.
Rds rds(const Receiver& chip) {
  const Receiver_state& state = chip.state;
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

Refusal rds_status(Receiver& chip, Frame /*frame*/) {
  constexpr std::uint8_t reserved_interrupts = 0xE4;
  constexpr std::uint8_t reserved_states = 0xE4;
  constexpr std::uint8_t reserved_programme = 0xC0;
  constexpr std::size_t reply_bytes = 16;
  Receiver_state& state = chip.state;
  const Rds now = rds(chip);
  const Fm_station& station = now.station;
  const bool has_overrun = now.waiting > fifo_groups;
  if (has_overrun) state.groups_taken = now.arrived - fifo_groups;
  const std::uint32_t kept = std::min(now.waiting, fifo_groups);
  const bool is_in = now.is_synchronized;  // nothing acknowledges that it was not
  auto& out = chip.reply;
  out.push_back(join(reserved_interrupts, flag(is_in, 4), flag(is_in, 3), flag(is_in, 1),
                     flag(kept >= full_fifo_groups, 0)));
  out.push_back(
      join(reserved_states, flag(is_in, 4), flag(is_in, 3), flag(is_in, 1), flag(has_overrun, 0)));
  const auto pty = static_cast<std::uint8_t>(station.pty & 0x1F);
  out.push_back(
      join(reserved_programme, flag(is_in && station.tp, 5), is_in ? pty : std::uint8_t{0}));
  out.push_back(reserved_byte);
  append(out, is_in ? station.pi : 0U, 2);
  append(out, std::max(kept, 1U) - 1, 1);
  if (kept > 0) {
    out.push_back(bit_errors(station, state.groups_taken));
    for (const auto block : group_at(chip, now, state.groups_taken)) append(out, block, 2);
    ++state.groups_taken;
  }
  out.resize(reply_bytes, 0);
  return nullptr;
}

constexpr auto rds_table = std::to_array<Command>({
    {0x34, "FM_RDS_STATUS", 0x00, 2, 2, in_fmhd, 0us, rds_status},
});

}  // namespace

std::span<const Command> rds_commands() { return rds_table; }

unsigned rds_interrupts(const Receiver& chip) { return flag(rds(chip).waiting > 0, 2); }

}  // namespace sim
