// SPDX-License-Identifier: GPL-3.0-or-later
//
// The helpers of all commands: tuning's common half, acknowledgement, and
// little-endian numbers.
#include "sim/chip.h"

#include <algorithm>

namespace sim {

const Command* find_command(std::uint8_t opcode) {
  for (const auto commands : {system_commands(), property_commands(), dab_commands(),
                              service_commands(), fm_commands(), rds_commands()}) {
    const auto found = std::ranges::find(commands, opcode, &Command::opcode);
    if (found != commands.end()) {
      return &*found;
    }
  }
  return nullptr;
}

void begin_tune(Chip& chip, std::uint32_t khz, Time duration) {
  Chip_state& state = chip.state;
  state.is_tuned = true;
  state.is_complete_acknowledged = false;
  state.khz = khz;
  state.tuned_at = chip.now();
  state.signal_since = chip.now();
  state.complete_at = chip.now() + duration;
  state.is_playing = false;
  state.has_hit_band_limit = false;
  state.groups_taken = 0;
}

bool is_tune_complete(const Chip& chip) {
  const Chip_state& state = chip.state;
  return state.is_tuned && chip.now() >= state.complete_at;
}

void acknowledge_signal(Chip& chip, Frame frame) {
  constexpr std::uint8_t interrupts = 0x08;
  constexpr std::uint8_t complete = 0x01;
  if ((frame[1] & interrupts) != 0) {
    chip.state.signal_seen_at = chip.now();
  }
  if ((frame[1] & complete) != 0) {
    chip.state.is_complete_acknowledged = true;
  }
}

bool is_pending(const Chip& chip, Time at, Time seen) { return at <= chip.now() && at > seen; }

void append(std::vector<std::uint8_t>& to, std::uint64_t value, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i) {
    to.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}

std::uint32_t number_at(Frame frame, std::size_t at, std::size_t bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < bytes; ++i) {
    value |= std::uint32_t{frame[at + i]} << (8 * i);
  }
  return value;
}

bool is_all_zero(Frame bytes) {
  return std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace sim
