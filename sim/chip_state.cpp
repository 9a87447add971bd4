// SPDX-License-Identifier: GPL-3.0-or-later
//
// The text form of the receiver's state. Every value is named once, in
// visit_values(); the writer and the reader are two visitors of that list.
#include "sim/chip_state.h"

#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <limits>
#include <type_traits>

namespace sim {
namespace {

constexpr std::string_view first_line = "kestrel-sim receiver state, version 2\n";
constexpr std::string_view checksum_word = "checksum ";
constexpr std::size_t checksum_line_bytes = checksum_word.size() + 8 + 1;

// A century: far beyond any board's life, and far from overflow when times are added.
constexpr std::int64_t max_time_ns = 3'200'000'000'000'000'000;
constexpr std::size_t max_properties = 256;

template <class State, class Visitor>
void visit_values(State& state, Visitor& visit) {
  auto& chip = state.chip;
  visit("now", state.now, max_time_ns);
  visit("wall", state.wall, max_time_ns);
  visit("reset_high", chip.reset_high, 1);
  visit("phase", chip.phase, static_cast<std::int64_t>(Phase::running));
  visit("firmware", chip.firmware, static_cast<std::int64_t>(Firmware::dab));
  visit("load_inits", chip.load_inits, 255);
  visit("patch_bytes", chip.patch_bytes, std::int64_t{1} << 24);
  visit("image_bytes", chip.image_bytes, std::int64_t{1} << 24);
  visit("command_error", chip.has_command_error, 1);
  visit("error_bits", chip.error_bits, 15);
  visit("busy_until", chip.busy_until, max_time_ns);
  visit("tuned", chip.is_tuned, 1);
  visit("complete_acknowledged", chip.is_complete_acknowledged, 1);
  visit("khz", chip.khz, 1'000'000);
  visit("tuned_at", chip.tuned_at, max_time_ns);
  visit("complete_at", chip.complete_at, max_time_ns);
  visit("antenna", chip.has_antenna, 1);
  visit("signal_since", chip.signal_since, max_time_ns);
  visit("signal_seen_at", chip.signal_seen_at, max_time_ns);
  visit.list("frequencies", chip.frequencies, max_frequencies, 1'000'000);
  visit("index", chip.index, static_cast<std::int64_t>(max_frequencies) - 1);
  visit("events_seen_at", chip.events_seen_at, max_time_ns);
  visit("playing", chip.is_playing, 1);
  visit("service_id", chip.service_id, std::numeric_limits<std::uint32_t>::max());
  visit("component_id", chip.component_id, std::numeric_limits<std::uint32_t>::max());
  visit("playing_since", chip.playing_since, max_time_ns);
  visit("packets_taken", chip.packets_taken, std::numeric_limits<std::uint32_t>::max());
  visit("band_limit", chip.has_hit_band_limit, 1);
  visit("rds_seen_at", chip.rds_seen_at, max_time_ns);
  visit("groups_taken", chip.groups_taken, std::numeric_limits<std::uint32_t>::max());
  visit.map("properties", chip.properties);
}

class Writer {
 public:
  explicit Writer(std::string& text) : text_(text) {}

  template <class Value>
  void operator()(std::string_view name, const Value& value, std::int64_t /*highest*/) {
    text_ += name;
    if constexpr (std::is_same_v<Value, Time>) {
      number(value.count());
    } else {
      number(static_cast<std::int64_t>(value));
    }
    text_ += '\n';
  }

  void list(std::string_view name, const std::vector<std::uint32_t>& values, std::size_t /*most*/,
            std::int64_t /*highest*/) {
    text_ += name;
    number(static_cast<std::int64_t>(values.size()));
    for (const std::uint32_t value : values) {
      number(value);
    }
    text_ += '\n';
  }

  void map(std::string_view name, const std::map<std::uint16_t, std::uint16_t>& values) {
    text_ += name;
    number(static_cast<std::int64_t>(values.size()));
    for (const auto& [id, value] : values) {
      number(id);
      number(value);
    }
    text_ += '\n';
  }

 private:
  void number(std::int64_t value) { text_ += ' ' + std::to_string(value); }

  std::string& text_;
};

class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool is_whole() const { return is_good_ && rest_.empty(); }

  template <class Value>
  void operator()(std::string_view name, Value& value, std::int64_t highest) {
    expect(name);
    value = static_cast<Value>(number(highest));
    expect("\n");
  }

  void list(std::string_view name, std::vector<std::uint32_t>& values, std::size_t most,
            std::int64_t highest) {
    expect(name);
    const auto count = number(static_cast<std::int64_t>(most));
    for (std::int64_t i = 0; i < count && is_good_; ++i) {
      values.push_back(static_cast<std::uint32_t>(number(highest)));
    }
    expect("\n");
  }

  void map(std::string_view name, std::map<std::uint16_t, std::uint16_t>& values) {
    constexpr std::int64_t highest = std::numeric_limits<std::uint16_t>::max();
    expect(name);
    const auto count = number(max_properties);
    for (std::int64_t i = 0; i < count && is_good_; ++i) {
      const auto id = static_cast<std::uint16_t>(number(highest));
      values[id] = static_cast<std::uint16_t>(number(highest));
    }
    expect("\n");
  }

 private:
  void expect(std::string_view text) {
    is_good_ = is_good_ && rest_.starts_with(text);
    if (is_good_) {
      rest_.remove_prefix(text.size());
    }
  }

  /// A blank and a number from 0 to `highest`; 0 once anything was wrong.
  std::int64_t number(std::int64_t highest) {
    expect(" ");
    std::int64_t value = 0;
    if (is_good_) {
      const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
      is_good_ = error == std::errc{} && value >= 0 && value <= highest;
      rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    }
    return is_good_ ? value : 0;
  }

  std::string_view rest_;
  bool is_good_ = true;
};

/// FNV-1a: it need not withstand a forger, only a torn or edited file.
std::uint32_t checksum(std::string_view text) {
  std::uint32_t sum = 2166136261U;
  for (const char character : text) {
    sum = (sum ^ static_cast<unsigned char>(character)) * 16777619U;
  }
  return sum;
}

std::string checksum_line(std::string_view text) {
  std::array<char, 9> digits{};
  (void)std::snprintf(digits.data(), digits.size(), "%08" PRIx32, checksum(text));
  return std::string(checksum_word) + digits.data() + '\n';
}

// No tune and no command takes longer.
constexpr Time longest_work = std::chrono::minutes(1);

/// Values that are each in range may still contradict each other.
bool is_possible(const Saved_state& state) {
  const Chip_state& chip = state.chip;
  const bool is_running = chip.phase == Phase::running;
  return chip.reset_high == (chip.phase != Phase::reset) &&
         is_running == (chip.firmware != Firmware::none) && (is_running || !chip.is_tuned) &&
         (chip.is_tuned || !chip.is_playing) && chip.busy_until <= state.now + longest_work &&
         chip.tuned_at <= chip.complete_at && chip.complete_at <= chip.tuned_at + longest_work;
}

}  // namespace

std::string serialise(const Saved_state& state) {
  std::string text(first_line);
  Writer writer(text);
  visit_values(state, writer);
  text += checksum_line(text);
  return text;
}

std::optional<Saved_state> parse_state(std::string_view text) {
  if (!text.starts_with(first_line) || text.size() < first_line.size() + checksum_line_bytes) {
    return std::nullopt;
  }
  const std::string_view body = text.substr(0, text.size() - checksum_line_bytes);
  if (text.substr(body.size()) != checksum_line(body)) {
    return std::nullopt;
  }
  Saved_state state;
  Reader reader(body.substr(first_line.size()));
  visit_values(state, reader);
  if (!reader.is_whole() || !is_possible(state)) {
    return std::nullopt;
  }
  return state;
}

}  // namespace sim
