// SPDX-License-Identifier: GPL-3.0-or-later
//
// The simulator's state file: what is accepted is written again as it was, and the receiver lives
// with it. Input: the file.
#include "sim/receiver.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto state = sim::parse_state(std::string(data, data + size));
  if (!state) return 0;
  fuzz::require(sim::parse_state(sim::serialise(*state)) == state, "a state survives saving");

  static const auto air = sim::default_air();
  sim::Clock clock(true, state->now);
  sim::Receiver receiver(clock, air, [](const std::string&) {});
  receiver.state = state->chip;
  // Each command with one argument byte, and the reply to it.
  for (unsigned opcode = 0x01; opcode <= 0xFF; ++opcode) {
    clock.advance(std::chrono::milliseconds(20));
    for (const auto first : {static_cast<std::uint8_t>(opcode), std::uint8_t{0}}) {
      receiver.select();
      (void)receiver.exchange(first);
      for (unsigned i = 1; i < (first == 0 ? 64U : 2U); ++i) (void)receiver.exchange(0);
      receiver.deselect();
    }
  }
  return 0;
}
