// SPDX-License-Identifier: GPL-3.0-or-later
//
// The RDS decoder: real groups of the tuned station (0A programme service name
// and alternative frequencies, 2A radiotext, 4A clock time) arriving in a FIFO
// at the rate of the subcarrier.
#include <algorithm>
#include <array>
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

constexpr unsigned group_0a = 0;
constexpr unsigned group_2a = 2;
constexpr unsigned group_4a = 4;

/// Block B: group type, the flags that every group repeats, and the group's own five bits.
std::uint16_t block_b(const Fm_station& station, unsigned type, unsigned low_bits) {
  return static_cast<std::uint16_t>(type << 12 | (station.tp ? 1U : 0U) << 10 |
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

Group name_group(const Fm_station& station, std::uint32_t turn) {
  constexpr unsigned music = 0x08;
  constexpr unsigned dynamic_pty = 0x04;
  const unsigned segment = turn % 4;
  const unsigned decoder = segment == 0 ? dynamic_pty : 0;
  return {station.pi, block_b(station, group_0a, music | decoder | segment),
          alternatives(station, segment), characters(station.ps, std::size_t{segment} * 2)};
}

Group text_group(const Fm_station& station, std::uint32_t turn) {
  constexpr std::size_t longest_text = 64;
  const std::string text = station.text.substr(0, longest_text);
  const auto segments = static_cast<std::uint32_t>(std::max<std::size_t>(1, (text.size() + 3) / 4));
  const unsigned segment = turn % segments;
  return {station.pi, block_b(station, group_2a, segment),
          characters(text, std::size_t{segment} * 4),
          characters(text, std::size_t{segment} * 4 + 2)};
}

Group clock_group(const Fm_station& station, std::chrono::sys_seconds utc) {
  // Days are counted from 17 November 1858, the epoch of the modified Julian date.
  constexpr auto first_day = std::chrono::sys_days{std::chrono::year{1858} / 11 / 17};
  const auto today = std::chrono::floor<std::chrono::days>(utc);
  const auto day = static_cast<unsigned>((today - first_day).count());
  const std::chrono::hh_mm_ss time(utc - today);
  const auto hour = static_cast<unsigned>(time.hours().count());
  const auto minute = static_cast<unsigned>(time.minutes().count());
  return {station.pi, block_b(station, group_4a, day >> 15),
          static_cast<std::uint16_t>((day & 0x7FFF) << 1 | hour >> 4),
          static_cast<std::uint16_t>((hour & 0x0F) << 12 | minute << 6)};
}

Group group_at(const Chip& chip, const Fm_station& station, std::uint32_t number) {
  constexpr std::uint32_t cycle = 16;
  if (number % cycle == cycle - 1) {
    return clock_group(station, chip.clock.utc());
  }
  return number % 2 == 0 ? name_group(station, number / 2) : text_group(station, number / 2);
}

/// Bit errors of the four blocks, two bits each, block A in the highest ones.
std::uint8_t block_errors(const Fm_station& station, std::uint32_t number) {
  static constexpr std::array<std::uint8_t, 5> weak = {0x00, 0x10, 0x04, 0x00, 0x81};
  return station.snr_db >= clean_snr_db ? std::uint8_t{0} : weak[number % weak.size()];
}

struct Rds {
  Fm_station station;
  bool is_synchronized = false;
  Time synchronized_at{};
  std::uint32_t arrived = 0;  ///< groups since synchronisation
  std::uint32_t waiting = 0;  ///< groups that nobody has read, those lost included
};

/// The decoder follows the station from the tune on; the properties only open it, so that the first
/// look after enabling it need not come too early.
Rds rds(const Chip& chip) {
  const Chip_state& state = chip.state;
  Rds result;
  const Fm_reception here = fm_reception(chip);
  result.station = here.station;
  result.synchronized_at = state.complete_at + sync_time;
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
    out.push_back(block_errors(station, state.groups_taken));
    for (const std::uint16_t block : group_at(chip, station, state.groups_taken)) {
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
