// SPDX-License-Identifier: GPL-3.0-or-later
//
// The library reads what it can; what it had to bend is found by writing it again.
#include "sim/receiver_state.h"

#include <algorithm>
#include <initializer_list>
#include <nlohmann/json.hpp>

/// Times are nanoseconds in the file.
template <>
struct nlohmann::adl_serializer<sim::Time> {
  static void to_json(json& to, const sim::Time& time) { to = time.count(); }
  static void from_json(const json& from, sim::Time& time) {
    time = sim::Time(from.get<std::int64_t>());
  }
};

namespace sim {

using nlohmann::json;

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Receiver_state, reset_high, phase, firmware, load_inits,
                                   patch_bytes, image_bytes, has_command_error, error_bits,
                                   busy_until, is_tuned, is_complete_acknowledged, khz, complete_at,
                                   has_antenna, signal_since, signal_seen_at, frequencies, index,
                                   events_seen_at, is_playing, service_id, component_id,
                                   playing_since, packets_taken, has_hit_band_limit, groups_taken,
                                   properties)

namespace {

constexpr const char* version = "kestrel-sim receiver state 4";

// A century: far beyond any board's life, and far from overflow when times are added.
constexpr Time longest_time = std::chrono::hours(24 * 365) * 100;
// No tune and no command takes longer.
constexpr Time longest_work = std::chrono::minutes(1);

bool is_possible(const Saved_state& state) {
  const Receiver_state& chip = state.chip;
  const bool is_running = chip.phase == Phase::running;
  const Time latest = std::min(state.now, longest_time) + longest_work;
  const auto times = {chip.busy_until,     chip.complete_at,    chip.signal_since,
                      chip.signal_seen_at, chip.events_seen_at, chip.playing_since};
  return std::ranges::all_of(times, [latest](Time at) { return at >= Time{} && at <= latest; }) &&
         state.now >= Time{} && state.now < longest_time && state.wall >= Time{} &&
         chip.phase <= Phase::running && chip.firmware <= Firmware::dab &&
         chip.frequencies.size() <= max_frequencies &&
         is_running == (chip.firmware != Firmware::none);
}

json to_document(const Saved_state& state) {
  return {{"version", version}, {"now", state.now}, {"wall", state.wall}, {"chip", state.chip}};
}

}  // namespace

std::string serialise(const Saved_state& state) { return to_document(state).dump(1) + '\n'; }

std::optional<Saved_state> parse_state(std::string_view text) try {
  const json document = json::parse(text);
  const Saved_state state = {.now = document.at("now").get<Time>(),
                             .wall = document.at("wall").get<Time>(),
                             .chip = document.at("chip").get<Receiver_state>()};
  const bool is_good = is_possible(state) && to_document(state) == document;
  return is_good ? std::optional(state) : std::nullopt;
} catch (const json::exception&) {
  return std::nullopt;
}

}  // namespace sim
