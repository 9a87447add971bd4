// SPDX-License-Identifier: GPL-3.0-or-later
//
// The text form of faults, which frame a fault strikes, and what it does there.
#include "sim/faults.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace sim {
namespace {

/// A kind by its name; where it sets a bit of the status, the bit and its byte.
struct Kind {
  std::string_view name;
  Fault_kind kind;
  std::size_t status_at = 0;
  std::uint8_t status_bit = 0;
};

constexpr auto kinds = std::to_array<Kind>({
    {"no_cts", Fault_kind::no_cts},
    {"late_cts", Fault_kind::late_cts},
    {"command_error", Fault_kind::command_error, status0_at, command_error_bit},
    {"dropped_write", Fault_kind::dropped_write, status3_at, write_dropped_bit},
    {"dropped_read", Fault_kind::dropped_read, status3_at, read_dropped_bit},
    {"arbiter_error", Fault_kind::arbiter_error, status3_at, arbiter_error_bit},
    {"non_recoverable", Fault_kind::non_recoverable, status3_at, non_recoverable_bit},
    {"all_ones", Fault_kind::all_ones},
    {"all_zeros", Fault_kind::all_zeros},
    {"garbage", Fault_kind::garbage},
    {"flipped_byte", Fault_kind::flipped_byte},
    {"short_reply", Fault_kind::short_reply},
    {"reset", Fault_kind::reset},
    {"no_board", Fault_kind::no_board},
    {"no_spi", Fault_kind::no_spi},
});

const Kind& row_of(Fault_kind kind) { return *std::ranges::find(kinds, kind, &Kind::kind); }

/// The whole of `text` as a number in `base`, at most `highest`.
std::optional<std::uint32_t> parse_number(std::string_view text, int base, std::uint32_t highest) {
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, value, base);
  const bool is_good = error == std::errc{} && last == end && value <= highest;
  return is_good ? std::optional(value) : std::nullopt;
}

/// Take the part of `text` before `separator`; `text` keeps what follows it.
std::string_view take(std::string_view& text, char separator) {
  const std::size_t at = std::min(text.find(separator), text.size());
  const std::string_view part = text.substr(0, at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return part;
}

/// Read PLACE into the fault.
bool parse_place(std::string_view place, Fault& fault) {
  if (place == "all") return true;
  const std::string_view word = take(place, ':');
  if (word == "opcode") {
    const auto opcode = parse_number(take(place, ':'), 16, 0xFF);
    if (!opcode) return false;
    fault.opcode = static_cast<std::uint8_t>(*opcode);
    if (place.empty()) return true;
  } else if (word != "frame") {
    return false;
  }
  fault.nth = parse_number(place, 10, std::numeric_limits<std::uint32_t>::max());
  return fault.nth.has_value();
}

}  // namespace

std::string_view name_of(Fault_kind kind) { return row_of(kind).name; }

std::optional<Fault> parse_fault(std::string_view text) {
  std::string_view place = text;
  std::string_view what = take(place, '@');
  const bool has_place = what.size() < text.size();
  const auto* const row = std::ranges::find(kinds, take(what, ':'), &Kind::name);
  if (row == kinds.end()) return std::nullopt;
  Fault fault = {.kind = row->kind};
  if (!what.empty()) {
    const auto number = parse_number(what, 10, std::numeric_limits<std::uint32_t>::max());
    if (!number) return std::nullopt;
    fault.number = *number;
  }
  if (has_place && !parse_place(place, fault)) return std::nullopt;
  return fault;
}

Fault_injector::Fault_injector(Receiver& receiver, const std::vector<Fault>& faults)
    : receiver_(receiver) {
  for (const Fault& fault : faults) armed_.push_back({.fault = fault});
}

bool Fault_injector::has(Fault_kind kind) const {
  return std::ranges::any_of(armed_, [kind](const Armed& one) { return one.fault.kind == kind; });
}

void Fault_injector::select() {
  position_ = 0;
  is_read_ = true;
  std::erase_if(strikes_, [](const Strike& one) { return !one.lasts; });
  receiver_.select();
}

std::uint8_t Fault_injector::exchange(std::uint8_t mosi) {
  const std::size_t at = position_++;
  if (at == 0) begin(mosi);
  std::uint8_t byte = receiver_.exchange(mosi);
  for (Strike& active : strikes_) byte = spoil(active, at, byte);
  return byte;
}

void Fault_injector::deselect() {
  receiver_.deselect();
  ++frames_;
  for (Strike& active : strikes_) {
    if (is_read_ && active.reads_left > 0) --active.reads_left;
  }
}

std::uint8_t Fault_injector::spoil(Strike& strike, std::size_t at, std::uint8_t byte) {
  const std::uint32_t number = strike.fault.number;
  const auto without_cts = static_cast<std::uint8_t>(byte & ~unsigned{clear_to_send_bit});
  switch (strike.fault.kind) {
    case Fault_kind::no_cts:
      return at == status0_at ? without_cts : byte;
    case Fault_kind::late_cts:
      return at == status0_at && strike.reads_left > 0 ? without_cts : byte;
    case Fault_kind::all_ones:
      return 0xFF;
    case Fault_kind::all_zeros:
      return 0x00;
    case Fault_kind::garbage:
      strike.random = strike.random * 1664525U + 1013904223U;
      return static_cast<std::uint8_t>(strike.random >> 24);
    case Fault_kind::flipped_byte:
      return at == number ? static_cast<std::uint8_t>(~unsigned{byte}) : byte;
    case Fault_kind::short_reply:
      return at < number ? byte : std::uint8_t{0};
    default: {
      const Kind& row = row_of(strike.fault.kind);
      return at == row.status_at ? join(byte, row.status_bit) : byte;
    }
  }
}

void Fault_injector::begin(std::uint8_t opcode) {
  is_read_ = opcode == 0;
  if (!is_read_) strikes_.clear();
  for (Armed& armed : armed_) {
    const Fault& fault = armed.fault;
    if (fault.opcode.value_or(opcode) != opcode) continue;
    const std::uint32_t number = fault.opcode ? armed.matches++ : frames_;
    if (fault.nth.value_or(number) == number) strike(fault, is_read_);
  }
}

void Fault_injector::strike(const Fault& fault, bool is_read) {
  constexpr std::uint32_t late_reads = 3;
  // A fault that strikes every frame would otherwise pile up with each read.
  const bool is_carried = std::ranges::any_of(strikes_, [&fault](const Strike& one) {
    return one.fault.kind == fault.kind && one.fault.number == fault.number;
  });
  if (!is_carried) {
    strikes_.push_back({.fault = fault,
                        .random = fault.number,
                        .reads_left = fault.number != 0 ? fault.number : late_reads,
                        .lasts = !is_read || fault.kind == Fault_kind::no_cts});
  }
  if (fault.kind == Fault_kind::reset) receiver_.power_cycle();
  if (is_read) return;
  using enum Receiver::Command_fault;
  if (fault.kind == Fault_kind::command_error) receiver_.spoil_command(refused);
  if (fault.kind == Fault_kind::dropped_write) receiver_.spoil_command(lost);
}

}  // namespace sim
