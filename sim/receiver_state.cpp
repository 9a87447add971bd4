// SPDX-License-Identifier: GPL-3.0-or-later
//
// Every value is named once, in visit_values(); the writer and the reader are
// two visitors of that list.
#include "sim/receiver_state.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <type_traits>

namespace sim {
namespace {

using nlohmann::json;

constexpr const char* version_key = "kestrel-sim receiver state";
constexpr int version = 3;

// A century: far beyond any board's life, and far from overflow when times are added.
constexpr std::uint64_t max_time_ns = 3'200'000'000'000'000'000;
constexpr std::uint64_t max_32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t max_khz = 1'000'000;
constexpr std::uint64_t max_loaded_bytes = 1U << 24;
constexpr std::size_t max_properties = 256;

/// `visit` gets each value's name, the value and the highest that it may be.
template <class State, class Visitor>
void visit_values(State& state, Visitor visit) {
  auto& chip = state.chip;
  visit("now", state.now, max_time_ns);
  visit("wall", state.wall, max_time_ns);
  visit("reset_high", chip.reset_high, 1);
  visit("phase", chip.phase, std::uint64_t{static_cast<std::uint8_t>(Phase::running)});
  visit("firmware", chip.firmware, std::uint64_t{static_cast<std::uint8_t>(Firmware::dab)});
  visit("load_inits", chip.load_inits, 255);
  visit("patch_bytes", chip.patch_bytes, max_loaded_bytes);
  visit("image_bytes", chip.image_bytes, max_loaded_bytes);
  visit("has_command_error", chip.has_command_error, 1);
  visit("error_bits", chip.error_bits, 15);
  visit("busy_until", chip.busy_until, max_time_ns);
  visit("is_tuned", chip.is_tuned, 1);
  visit("is_complete_acknowledged", chip.is_complete_acknowledged, 1);
  visit("khz", chip.khz, max_khz);
  visit("tuned_at", chip.tuned_at, max_time_ns);
  visit("complete_at", chip.complete_at, max_time_ns);
  visit("has_antenna", chip.has_antenna, 1);
  visit("signal_since", chip.signal_since, max_time_ns);
  visit("signal_seen_at", chip.signal_seen_at, max_time_ns);
  visit("frequencies", chip.frequencies, max_khz);
  visit("index", chip.index, max_frequencies - 1);
  visit("events_seen_at", chip.events_seen_at, max_time_ns);
  visit("is_playing", chip.is_playing, 1);
  visit("service_id", chip.service_id, max_32);
  visit("component_id", chip.component_id, max_32);
  visit("playing_since", chip.playing_since, max_time_ns);
  visit("packets_taken", chip.packets_taken, max_32);
  visit("has_hit_band_limit", chip.has_hit_band_limit, 1);
  visit("rds_seen_at", chip.rds_seen_at, max_time_ns);
  visit("groups_taken", chip.groups_taken, max_32);
  visit("properties", chip.properties, std::numeric_limits<std::uint16_t>::max());
}

json to_json(const Time& time) { return time.count(); }
template <class Value>
json to_json(const Value& value) {
  return value;
}

/// Each reads `from` into `to` unless it is something else, or more than `highest`.
template <class Value>
bool read(const json& from, Value& to, std::uint64_t highest) {
  if constexpr (std::is_same_v<Value, bool>) {
    if (!from.is_boolean()) return false;
    to = from.get<bool>();
  } else {
    if (!from.is_number_unsigned() || from.get<std::uint64_t>() > highest) return false;
    to = static_cast<Value>(from.get<std::uint64_t>());
  }
  return true;
}

bool read(const json& from, std::vector<std::uint32_t>& to, std::uint64_t highest) {
  if (!from.is_array() || from.size() > max_frequencies) return false;
  to.resize(from.size());
  for (std::size_t i = 0; i < to.size(); ++i) {
    if (!read(from[i], to[i], highest)) return false;
  }
  return true;
}

bool read(const json& from, std::map<std::uint16_t, std::uint16_t>& to, std::uint64_t highest) {
  if (!from.is_array() || from.size() > max_properties) return false;
  for (const json& pair : from) {
    std::uint16_t id = 0;
    if (!pair.is_array() || pair.size() != 2 || !read(pair[0], id, highest)) return false;
    if (!read(pair[1], to[id], highest)) return false;
  }
  return true;
}

// No tune and no command takes longer.
constexpr Time longest_work = std::chrono::minutes(1);

/// Values that are each in range may still contradict each other.
bool is_possible(const Saved_state& state) {
  const Receiver_state& chip = state.chip;
  const bool is_running = chip.phase == Phase::running;
  return chip.reset_high == (chip.phase != Phase::reset) &&
         is_running == (chip.firmware != Firmware::none) && (is_running || !chip.is_tuned) &&
         (chip.is_tuned || !chip.is_playing) && chip.busy_until <= state.now + longest_work &&
         chip.tuned_at <= chip.complete_at && chip.complete_at <= chip.tuned_at + longest_work;
}

}  // namespace

std::string serialise(const Saved_state& state) {
  json document = {{version_key, version}};
  visit_values(state, [&document](const char* name, const auto& value, std::uint64_t /*highest*/) {
    document[name] = to_json(value);
  });
  return document.dump(1) + '\n';
}

std::optional<Saved_state> parse_state(std::string_view text) {
  const json document = json::parse(text, nullptr, false);
  if (!document.is_object() || document.value(version_key, json()) != version) return std::nullopt;
  Saved_state state;
  std::size_t values = 1;
  bool is_good = true;
  visit_values(state, [&](const char* name, auto& value, std::uint64_t highest) {
    const auto found = document.find(name);
    is_good = is_good && found != document.end() && read(*found, value, highest);
    ++values;
  });
  if (!is_good || values != document.size() || !is_possible(state)) return std::nullopt;
  return state;
}

}  // namespace sim
