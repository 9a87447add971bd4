// SPDX-License-Identifier: GPL-3.0-or-later
//
// The text of an event: its name, then its numbers, in words where they have any.
#include "sim/events.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace sim {
namespace {

/// Names of the values 0, 1, ... of a number; beyond them it is written as a number.
using Words = std::array<std::string_view, 3>;

constexpr Words plain = {};
constexpr Words functions = {"in", "out"};
constexpr Words pulls = {"off", "down", "up"};
constexpr Words levels = {"low", "high"};
constexpr Words bit_orders = {"lsb", "msb"};

struct Row {
  Event_kind kind;
  std::string_view name;
  int numbers;
  Words last_words;  ///< for the last of the numbers
};

constexpr auto rows = std::to_array<Row>({
    {Event_kind::init, "init", 0, plain},
    {Event_kind::close, "close", 0, plain},
    {Event_kind::fsel, "fsel", 2, functions},
    {Event_kind::pud, "pud", 2, pulls},
    {Event_kind::gpio, "gpio", 2, levels},
    {Event_kind::spi_begin, "spi_begin", 0, plain},
    {Event_kind::spi_end, "spi_end", 0, plain},
    {Event_kind::bit_order, "bit_order", 1, bit_orders},
    {Event_kind::mode, "mode", 1, plain},
    {Event_kind::divider, "divider", 1, plain},
    {Event_kind::cs, "cs", 1, plain},
    {Event_kind::cs_polarity, "cs_polarity", 2, levels},
    {Event_kind::delay_ms, "delay_ms", 1, plain},
    {Event_kind::delay_us, "delay_us", 1, plain},
    {Event_kind::frame, "frame", 0, plain},
});

std::string in_words(std::uint64_t number, const Words& words) {
  const auto index = static_cast<std::size_t>(number);
  const bool has_word = number < words.size() && !words[index].empty();
  return ' ' + (has_word ? std::string(words[index]) : std::to_string(number));
}

}  // namespace

std::string hex(const std::vector<std::uint8_t>& bytes, std::size_t most) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < std::min(bytes.size(), most); ++i) {
    text += i == 0 ? "" : " ";
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 0x0FU];
  }
  return text;
}

std::string to_string(const Event& event) {
  const Row& row = *std::ranges::find(rows, event.kind, &Row::kind);
  std::string text(row.name);
  if (row.numbers == 2) {
    text += in_words(event.first, plain) + in_words(event.second, row.last_words);
  } else if (row.numbers == 1) {
    text += in_words(event.first, row.last_words);
  }
  if (!event.sent.empty()) {
    text += ' ' + hex(event.sent, event.sent.size());
  }
  return text;
}

}  // namespace sim
