// SPDX-License-Identifier: GPL-3.0-or-later
//
// The kinds of faults, one row each, and the text form that the environment uses.
#include "sim/faults.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "sim/fault_injector.h"
#include "sim/receiver.h"

namespace sim {
namespace {

std::uint8_t unchanged(Strike& /*strike*/, std::size_t /*at*/, std::uint8_t byte) { return byte; }

std::uint8_t without_cts(Strike& /*strike*/, std::size_t at, std::uint8_t byte) {
  return at == status0_at ? static_cast<std::uint8_t>(byte & ~unsigned{clear_to_send_bit}) : byte;
}

template <std::size_t where, std::uint8_t bit>
std::uint8_t with_bit(Strike& /*strike*/, std::size_t at, std::uint8_t byte) {
  return at == where ? static_cast<std::uint8_t>(byte | bit) : byte;
}

template <std::uint8_t level>
std::uint8_t stuck(Strike& /*strike*/, std::size_t /*at*/, std::uint8_t /*byte*/) {
  return level;
}

std::uint8_t noise(Strike& strike, std::size_t /*at*/, std::uint8_t /*byte*/) {
  strike.random = strike.random * 1664525U + 1013904223U;
  return static_cast<std::uint8_t>(strike.random >> 24);
}

std::uint8_t flipped(Strike& strike, std::size_t at, std::uint8_t byte) {
  return at == strike.number ? static_cast<std::uint8_t>(~unsigned{byte}) : byte;
}

std::uint8_t cut(Strike& strike, std::size_t at, std::uint8_t byte) {
  return at < strike.number ? byte : std::uint8_t{0};
}

constexpr auto kinds = std::to_array<Fault_row>({
    {"no_cts", Fault_kind::no_cts, without_cts},
    {"late_cts", Fault_kind::late_cts, without_cts},
    {"command_error", Fault_kind::command_error, with_bit<status0_at, command_error_bit>},
    {"dropped_write", Fault_kind::dropped_write, with_bit<status3_at, write_dropped_bit>},
    {"dropped_read", Fault_kind::dropped_read, with_bit<status3_at, read_dropped_bit>},
    {"arbiter_error", Fault_kind::arbiter_error, with_bit<status3_at, arbiter_error_bit>},
    {"non_recoverable", Fault_kind::non_recoverable, with_bit<status3_at, non_recoverable_bit>},
    {"all_ones", Fault_kind::all_ones, stuck<0xFF>},
    {"all_zeros", Fault_kind::all_zeros, stuck<0x00>},
    {"garbage", Fault_kind::garbage, noise},
    {"flipped_byte", Fault_kind::flipped_byte, flipped},
    {"short_reply", Fault_kind::short_reply, cut},
    {"reset", Fault_kind::reset, unchanged},
    {"no_board", Fault_kind::no_board, unchanged},
    {"no_spi", Fault_kind::no_spi, unchanged},
});

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
  if (place == "all") {
    return true;
  }
  const std::string_view word = take(place, ':');
  if (word == "opcode") {
    const auto opcode = parse_number(take(place, ':'), 16, 0xFF);
    if (!opcode) {
      return false;
    }
    fault.opcode = static_cast<std::uint8_t>(*opcode);
    if (place.empty()) {
      return true;
    }
  } else if (word != "frame" && word != "call") {
    return false;
  }
  fault.nth = parse_number(place, 10, UINT32_MAX);
  return fault.nth.has_value();
}

}  // namespace

const Fault_row& fault_row(Fault_kind kind) {
  return *std::ranges::find(kinds, kind, &Fault_row::kind);
}

std::optional<Fault> parse_fault(std::string_view text) {
  std::string_view place = text;
  std::string_view what = take(place, '@');
  const bool has_place = what.size() < text.size();
  const std::string_view name = take(what, ':');
  const auto* const row = std::ranges::find(kinds, name, &Fault_row::name);
  if (row == kinds.end()) {
    return std::nullopt;
  }
  Fault fault = {.kind = row->kind};
  if (!what.empty()) {
    const auto number = parse_number(what, 10, UINT32_MAX);
    if (!number) {
      return std::nullopt;
    }
    fault.number = *number;
  }
  if (has_place && !parse_place(place, fault)) {
    return std::nullopt;
  }
  return fault;
}

}  // namespace sim
