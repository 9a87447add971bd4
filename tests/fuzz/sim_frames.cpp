// SPDX-License-Identifier: GPL-3.0-or-later
//
// Any frames, waits and resets on the simulated receiver. Input: the firmware that runs (0 none),
// then records that are frames; an empty one is followed by a byte for a wait or a reset.
#include "sim/receiver.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr unsigned longest_wait_bits = 40;  // 2^40 ns is 18 minutes
  static const auto air = sim::default_air();
  fuzz::Input input(data, size);
  sim::Clock clock(true, {});
  sim::Receiver receiver(clock, air, [](const std::string&) {});
  if (const auto firmware = fuzz::take_byte(input) % 3; firmware != 0) {
    sim::start_firmware(receiver.state, static_cast<sim::Firmware>(firmware));
  }
  while (!input.empty()) {
    if (const auto frame = fuzz::take_record(input); !frame.empty()) {
      receiver.select();
      for (const auto byte : frame) (void)receiver.exchange(byte);
      receiver.deselect();
    } else if (const auto what = fuzz::take_byte(input); what < longest_wait_bits) {
      clock.advance(sim::Time(std::int64_t{1} << what));
    } else {
      receiver.reset_line(what % 2 != 0);
    }
  }
  const sim::Saved_state saved{.now = clock.now(), .wall = {}, .chip = receiver.state};
  fuzz::require(sim::parse_state(sim::serialise(saved)) == saved, "any state can be saved");
  return 0;
}
