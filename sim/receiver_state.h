// SPDX-License-Identifier: GPL-3.0-or-later
//
// Everything in the receiver that outlives one run of a program, and its text
// form. The text is untrusted when it is read back: every value is checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/clock.h"

namespace sim {

enum class Phase : std::uint8_t {
  reset,    ///< reset line low
  waiting,  ///< reset released, waiting for POWER_UP
  loader,   ///< boot loader
  running,  ///< receiver firmware
};

/// The numbers are those by which the chip reports its running image.
enum class Firmware : std::uint8_t { none = 0, fmhd = 1, dab = 2 };

inline constexpr std::size_t max_frequencies = 48;

/// Times are simulated time; a default one is the chip held in reset.
struct Receiver_state {
  bool reset_high = false;
  Phase phase = Phase::reset;
  Firmware firmware = Firmware::none;

  std::uint8_t load_inits = 0;  ///< LOAD_INIT commands so far: 1 patch, 2 image
  std::uint32_t patch_bytes = 0;
  std::uint32_t image_bytes = 0;

  bool has_command_error = false;
  std::uint8_t error_bits = 0;  ///< STATUS3 bits 3..0 that the next command clears
  Time busy_until{};

  bool is_tuned = false;
  bool is_complete_acknowledged = false;
  bool has_hit_band_limit = false;
  bool has_antenna = true;
  std::uint32_t khz = 0;
  Time complete_at{};
  Time signal_since{};    ///< the tune, or the antenna's return after it
  Time signal_seen_at{};  ///< signal interrupts are acknowledged up to here
  Time events_seen_at{};  ///< DAB events are acknowledged up to here

  std::vector<std::uint32_t> frequencies;  ///< DAB list, kHz, at most max_frequencies
  std::uint8_t index = 0;
  bool is_playing = false;
  std::uint32_t service_id = 0;
  std::uint32_t component_id = 0;
  std::uint32_t packets_taken = 0;
  Time playing_since{};

  std::uint32_t groups_taken = 0;

  std::map<std::uint16_t, std::uint16_t> properties;  ///< those written since boot

  bool operator==(const Receiver_state&) const = default;
};

/// The whole of a state file.
struct Saved_state {
  Time now{};   ///< simulated time when it was saved
  Time wall{};  ///< machine's time of day when it was saved
  Receiver_state chip;

  bool operator==(const Saved_state&) const = default;
};

/// The JSON text of a state file.
std::string serialise(const Saved_state& state);

/// The state in a file's text; nothing when the text is of another version,
/// damaged, or holds a value that no receiver can have.
std::optional<Saved_state> parse_state(std::string_view text);

}  // namespace sim
