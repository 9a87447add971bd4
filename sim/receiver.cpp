// SPDX-License-Identifier: GPL-3.0-or-later
//
// Frames, status bytes, clear-to-send, and the way from a frame to its command.
#include "sim/receiver.h"

#include <array>
#include <cstdio>
#include <utility>

namespace sim {
namespace {

// One byte more than any frame may have: enough to see that it is too long.
constexpr std::size_t frame_room = 4096 + 1;

std::uint8_t present_state(const Chip_state& state) {
  switch (state.phase) {
    case Phase::loader:
      return in_loader;
    case Phase::running:
      return state.firmware == Firmware::dab ? in_dab : in_fmhd;
    default:
      return when_waiting;
  }
}

std::uint8_t power_up_bits(Phase phase) {
  constexpr std::uint8_t loader_runs = 0x80;
  constexpr std::uint8_t firmware_runs = 0xC0;
  return phase == Phase::running ? firmware_runs : phase == Phase::loader ? loader_runs : 0x00;
}

Interrupts interrupts(const Chip& chip) {
  Interrupts sum;
  if (chip.state.phase == Phase::running) {
    const bool is_dab = chip.state.firmware == Firmware::dab;
    const Interrupts first = is_dab ? dab_interrupts(chip) : rds_interrupts(chip);
    const Interrupts second = is_dab ? service_interrupts(chip) : Interrupts{};
    const bool is_complete = is_tune_complete(chip) && !chip.state.is_complete_acknowledged;
    sum.status0 = join(first.status0, second.status0, flag(is_complete, 0));
    sum.status1 = join(first.status1, second.status1);
  }
  return sum;
}

}  // namespace

Receiver::Receiver(const Clock& clock, const Air& air, std::function<void(const std::string&)> log)
    : chip_{.clock = clock, .air = air}, log_(std::move(log)) {
  frame_.reserve(frame_room);
}

void Receiver::select() {
  frame_.clear();
  position_ = 0;
  is_read_ = false;
  mishap_ = Mishap::none;
  look_at_antenna();
}

std::uint8_t Receiver::exchange(std::uint8_t mosi) {
  const std::size_t at = position_++;
  if (chip_.state.phase == Phase::reset) {
    return undriven_byte;
  }
  if (at == 0) {
    is_read_ = mosi == 0;
  }
  if (is_read_) {
    return read_byte(at);
  }
  if (frame_.size() < frame_room) {
    frame_.push_back(mosi);
  }
  return idle_byte;
}

void Receiver::deselect() {
  if (!frame_.empty()) {
    run_command();
    frame_.clear();
  }
}

void Receiver::reset_line(bool high) {
  if (high == chip_.state.reset_high) {
    return;
  }
  chip_.state = Chip_state{};
  chip_.state.reset_high = high;
  chip_.state.phase = high ? Phase::waiting : Phase::reset;
  chip_.reply.clear();
  frame_.clear();
}

void Receiver::power_cycle() {
  const bool is_high = chip_.state.reset_high;
  reset_line(!is_high);
  reset_line(is_high);
}

void Receiver::look_at_antenna() {
  Chip_state& state = chip_.state;
  if (chip_.air.has_antenna && !state.has_antenna) {
    // What was lost is received from its beginning, on the same frequency.
    state.signal_since = chip_.now();
    state.playing_since = chip_.now();
    state.packets_taken = 0;
    state.groups_taken = 0;
  }
  state.has_antenna = chip_.air.has_antenna;
}

std::uint8_t Receiver::read_byte(std::size_t at) const {
  if (at < status0_at) {
    return idle_byte;
  }
  if (at <= status3_at) {
    return status_byte(at - status0_at);
  }
  const std::size_t index = at - status3_at - 1;
  return is_ready() && index < chip_.reply.size() ? chip_.reply[index] : std::uint8_t{0};
}

std::uint8_t Receiver::status_byte(std::size_t number) const {
  const Chip_state& state = chip_.state;
  switch (number) {
    case 0:
      return is_ready() ? join(clear_to_send_bit,
                               state.has_command_error ? command_error_bit : std::uint8_t{0},
                               interrupts(chip_).status0)
                        : std::uint8_t{0};
    case 1:
      return interrupts(chip_).status1;
    case 2:
      return 0;
    default:
      return join(power_up_bits(state.phase), state.error_bits);
  }
}

Refusal Receiver::check(const Command* command) const {
  if (command == nullptr) {
    return "unknown command";
  }
  if ((command->accepted_in & present_state(chip_.state)) == 0) {
    return "not accepted in this state";
  }
  if (frame_.size() < command->shortest || frame_.size() > command->longest) {
    return "wrong length";
  }
  if ((frame_[1] & ~unsigned{command->argument_bits}) != 0) {
    return "reserved bits of the first argument are set";
  }
  return mishap_ == Mishap::refused ? "an injected fault" : nullptr;
}

void Receiver::run_command() {
  const Command* const command = find_command(frame_[0]);
  const auto report = [&](const char* what, const char* why) {
    std::array<char, 16> opcode{};
    (void)std::snprintf(opcode.data(), opcode.size(), " (%02x) ", unsigned{frame_[0]});
    log_(std::string(command != nullptr ? command->name : "command") + opcode.data() + what + why);
  };
  Chip_state& state = chip_.state;
  if (!is_ready() || mishap_ == Mishap::lost) {
    state.error_bits = join(state.error_bits, write_dropped_bit);
    report("lost: ", is_ready() ? "an injected fault" : "not clear to send");
    return;
  }
  state.has_command_error = false;
  state.error_bits = 0;
  chip_.reply.clear();
  Refusal refusal = check(command);
  if (refusal == nullptr) {
    refusal = command->handle(chip_, frame_);
  }
  if (refusal != nullptr) {
    chip_.reply.clear();
    state.has_command_error = true;
    report("refused: ", refusal);
    return;
  }
  state.busy_until = chip_.now() + command->busy;
}

}  // namespace sim
