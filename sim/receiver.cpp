// SPDX-License-Identifier: GPL-3.0-or-later
//
// Frames, status bytes, clear-to-send, the way from a frame to its command, and
// what the command files share.
#include "sim/receiver.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace sim {
namespace {

// One byte more than any frame may have: enough to see that it is too long.
constexpr std::size_t frame_room = 4096 + 1;

std::uint8_t present_state(const Receiver_state& state) {
  if (state.phase == Phase::loader) return in_loader;
  if (state.phase != Phase::running) return when_waiting;
  return state.firmware == Firmware::dab ? in_dab : in_fmhd;
}

std::uint8_t power_up_bits(Phase phase) {
  constexpr std::uint8_t loader_runs = 0x80;
  constexpr std::uint8_t firmware_runs = 0xC0;
  return phase == Phase::running ? firmware_runs : phase == Phase::loader ? loader_runs : 0x00;
}

unsigned interrupts(const Receiver& chip) {
  if (chip.state.phase != Phase::running) return 0;
  const bool is_complete = is_tune_complete(chip) && !chip.state.is_complete_acknowledged;
  if (chip.state.firmware == Firmware::fmhd) return flag(is_complete, 0) | rds_interrupts(chip);
  return flag(is_complete, 0) | dab_interrupts(chip) | service_interrupts(chip);
}

Refusal check(const Receiver_state& state, const Command* command, Frame frame) {
  if (command == nullptr) return "unknown command";
  if ((command->accepted_in & present_state(state)) == 0) return "not accepted in this state";
  if (frame.size() < command->shortest || frame.size() > command->longest) return "wrong length";
  if ((frame[1] & ~unsigned{command->argument_bits}) != 0) {
    return "reserved bits of the first argument are set";
  }
  return nullptr;
}

}  // namespace

void Receiver::select() {
  frame_.clear();
  position_ = 0;
  is_read_ = false;
  command_fault_ = Command_fault::none;
  look_at_antenna();
}

std::uint8_t Receiver::exchange(std::uint8_t mosi) {
  const std::size_t at = position_++;
  if (state.phase == Phase::reset) return undriven_byte;
  if (at == 0) is_read_ = mosi == 0;
  if (is_read_) return read_byte(at);
  if (frame_.size() < frame_room) frame_.push_back(mosi);
  return idle_byte;
}

void Receiver::deselect() {
  if (!frame_.empty()) run_command();
  frame_.clear();
}

void Receiver::reset_line(bool is_high) {
  if (is_high == state.reset_high) return;
  state = Receiver_state{};
  state.reset_high = is_high;
  state.phase = is_high ? Phase::waiting : Phase::reset;
  reply.clear();
  frame_.clear();
}

void Receiver::power_cycle() {
  const bool is_high = state.reset_high;
  reset_line(!is_high);
  reset_line(is_high);
}

void Receiver::look_at_antenna() {
  if (air.has_antenna && !state.has_antenna) {
    // What was lost is received from its beginning, on the same frequency.
    state.signal_since = state.playing_since = now();
    state.packets_taken = state.groups_taken = 0;
  }
  state.has_antenna = air.has_antenna;
}

std::uint8_t Receiver::read_byte(std::size_t at) const {
  if (at < status0_at) return idle_byte;
  if (at <= status3_at) return status_byte(at - status0_at);
  const std::size_t index = at - status3_at - 1;
  return is_ready() && index < reply.size() ? reply[index] : std::uint8_t{0};
}

std::uint8_t Receiver::status_byte(std::size_t number) const {
  switch (number) {
    case 0:
      if (!is_ready()) return 0;
      return join(clear_to_send_bit, flag(state.has_command_error, 6),
                  static_cast<std::uint8_t>(interrupts(*this)));
    case 1:
      return static_cast<std::uint8_t>(interrupts(*this) >> 8);
    case 2:
      return 0;
    default:
      return join(power_up_bits(state.phase), state.error_bits);
  }
}

void Receiver::run_command() {
  const Command* const command = find_command(frame_[0]);
  const auto report = [&](const char* what, const char* why) {
    std::array<char, 16> opcode{};
    (void)std::snprintf(opcode.data(), opcode.size(), " (%02x) ", unsigned{frame_[0]});
    log_(std::string(command != nullptr ? command->name : "command") + opcode.data() + what + why);
  };
  if (!is_ready() || command_fault_ == Command_fault::lost) {
    state.error_bits = join(state.error_bits, write_dropped_bit);
    report("lost: ", is_ready() ? "an injected fault" : "not clear to send");
    return;
  }
  state.has_command_error = false;
  state.error_bits = 0;
  reply.clear();
  Refusal refusal = check(state, command, frame_);
  if (refusal == nullptr && command_fault_ == Command_fault::refused) refusal = "an injected fault";
  if (refusal == nullptr) refusal = command->handle(*this, frame_);
  if (refusal == nullptr) {
    state.busy_until = now() + command->busy;
  } else {
    reply.clear();
    state.has_command_error = true;
    report("refused: ", refusal);
  }
}

const Command* find_command(std::uint8_t opcode) {
  for (const auto commands :
       {system_commands(), dab_commands(), service_commands(), fm_commands(), rds_commands()}) {
    const auto found = std::ranges::find(commands, opcode, &Command::opcode);
    if (found != commands.end()) return &*found;
  }
  return nullptr;
}

void begin_tune(Receiver& chip, std::uint32_t khz, Time duration) {
  Receiver_state& state = chip.state;
  state.is_tuned = true;
  state.is_complete_acknowledged = false;
  state.khz = khz;
  state.signal_since = chip.now();
  state.complete_at = chip.now() + duration;
  state.is_playing = false;
  state.has_hit_band_limit = false;
  state.groups_taken = 0;
}

bool is_tune_complete(const Receiver& chip) {
  return chip.state.is_tuned && chip.now() >= chip.state.complete_at;
}

void acknowledge_signal(Receiver& chip, Frame frame) {
  constexpr std::uint8_t interrupts = 0x08;
  constexpr std::uint8_t complete = 0x01;
  if ((frame[1] & interrupts) != 0) chip.state.signal_seen_at = chip.now();
  if ((frame[1] & complete) != 0) chip.state.is_complete_acknowledged = true;
}

bool is_pending(const Receiver& chip, Time at, Time seen) { return at <= chip.now() && at > seen; }

void append(std::vector<std::uint8_t>& to, std::uint64_t value, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i) to.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

std::uint32_t number_at(Frame frame, std::size_t at, std::size_t bytes) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < bytes; ++i) value |= std::uint32_t{frame[at + i]} << (8 * i);
  return value;
}

bool is_all_zero(Frame bytes) {
  return std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace sim
