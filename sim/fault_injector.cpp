// SPDX-License-Identifier: GPL-3.0-or-later
//
// Which frame a fault strikes, and what it does there.
#include "sim/fault_injector.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::uint8_t read_opcode = 0x00;
constexpr std::uint32_t late_reads = 3;

}  // namespace

Fault_injector::Fault_injector(Receiver& receiver, const std::vector<Fault>& faults)
    : receiver_(receiver) {
  for (const Fault& fault : faults) {
    armed_.push_back({.fault = fault});
  }
}

bool Fault_injector::fails_call(Fault_kind kind, std::uint32_t call) const {
  return std::ranges::any_of(armed_, [&](const Armed& armed) {
    return armed.fault.kind == kind && armed.fault.nth.value_or(call) == call;
  });
}

void Fault_injector::select() {
  position_ = 0;
  opcode_ = read_opcode;
  this_frame_.clear();
  receiver_.select();
}

std::uint8_t Fault_injector::exchange(std::uint8_t mosi) {
  const std::size_t at = position_++;
  if (at == 0) {
    begin(mosi);
  }
  std::uint8_t byte = receiver_.exchange(mosi);
  for (auto* const strikes : {&carried_, &this_frame_}) {
    for (Strike& active : *strikes) {
      if (active.reads_left > 0) {
        byte = fault_row(active.kind).apply(active, at, byte);
      }
    }
  }
  return byte;
}

void Fault_injector::deselect() {
  receiver_.deselect();
  ++frames_;
  const bool is_read = opcode_ == read_opcode;
  for (Strike& active : carried_) {
    if (is_read && active.reads_left > 0 && active.kind == Fault_kind::late_cts) {
      --active.reads_left;
    }
  }
}

void Fault_injector::begin(std::uint8_t opcode) {
  opcode_ = opcode;
  const bool is_read = opcode == read_opcode;
  if (!is_read) {
    carried_.clear();
  }
  for (Armed& armed : armed_) {
    const Fault& fault = armed.fault;
    if (fault.opcode.value_or(opcode) != opcode) {
      continue;
    }
    const std::uint32_t number = fault.opcode ? armed.matches++ : frames_;
    if (fault.nth.value_or(number) == number) {
      strike(fault, is_read);
    }
  }
}

void Fault_injector::strike(const Fault& fault, bool is_read) {
  Strike active = {.kind = fault.kind, .number = fault.number, .random = fault.number};
  if (fault.kind == Fault_kind::late_cts) {
    active.reads_left = fault.number != 0 ? fault.number : late_reads;
  }
  const bool lasts = !is_read || fault.kind == Fault_kind::no_cts;
  // A fault that strikes every frame would otherwise pile up with each read.
  const bool is_carried = std::ranges::any_of(carried_, [&active](const Strike& one) {
    return one.kind == active.kind && one.number == active.number;
  });
  if (!is_carried) {
    (lasts ? carried_ : this_frame_).push_back(active);
  }
  if (fault.kind == Fault_kind::reset) {
    receiver_.power_cycle();
  }
  if (!is_read && fault.kind == Fault_kind::command_error) {
    receiver_.spoil_command(Receiver::Mishap::refused);
  }
  if (!is_read && fault.kind == Fault_kind::dropped_write) {
    receiver_.spoil_command(Receiver::Mishap::lost);
  }
}

}  // namespace sim
