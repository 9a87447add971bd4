// SPDX-License-Identifier: GPL-3.0-or-later
//
// The text of an event: its name, then its numbers, in words where they have any.
// In the trace a frame shows the direction that carries information: what a
// command sent, what a read received.
#include "sim/events.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "sim/receiver.h"

namespace sim {
namespace {

/// Names of the values 0, 1, ... of a number; beyond them it is written as a number.
using Words = std::array<std::string_view, 3>;

constexpr Words functions = {"in", "out"};
constexpr Words pulls = {"off", "down", "up"};
constexpr Words levels = {"low", "high"};
constexpr Words bit_orders = {"lsb", "msb"};

struct Row {
  Event_kind kind;
  std::string_view name;
  int numbers = 0;
  Words last_words = {};  ///< for the last of the numbers
};

constexpr auto rows = std::to_array<Row>({
    {Event_kind::init, "init"},
    {Event_kind::close, "close"},
    {Event_kind::fsel, "fsel", 2, functions},
    {Event_kind::pud, "pud", 2, pulls},
    {Event_kind::gpio, "gpio", 2, levels},
    {Event_kind::spi_begin, "spi_begin"},
    {Event_kind::spi_end, "spi_end"},
    {Event_kind::bit_order, "bit_order", 1, bit_orders},
    {Event_kind::mode, "mode", 1},
    {Event_kind::divider, "divider", 1},
    {Event_kind::cs, "cs", 1},
    {Event_kind::cs_polarity, "cs_polarity", 2, levels},
    {Event_kind::delay_ms, "delay_ms", 1},
    {Event_kind::delay_us, "delay_us", 1},
    {Event_kind::frame, "frame"},
});

std::string in_words(std::uint64_t number, const Words& words) {
  const auto index = static_cast<std::size_t>(number);
  const bool has_word = number < words.size() && !words[index].empty();
  return ' ' + (has_word ? std::string(words[index]) : std::to_string(number));
}

/// The first `most` of `bytes` in lower-case hex, a blank before each.
std::string hex(const std::vector<std::uint8_t>& bytes, std::size_t most) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < std::min(bytes.size(), most); ++i) {
    text.append({' ', digits[bytes[i] >> 4], digits[bytes[i] & 0x0FU]});
  }
  return text;
}

std::string frame_text(const Event& event, std::uint64_t number) {
  constexpr std::size_t bytes_shown = 32;
  std::string text = "frame " + std::to_string(number);
  if (event.sent.empty()) return text + " empty";
  const bool is_read = event.sent[0] == 0;
  const Command* const command = find_command(event.sent[0]);
  const char* const name = command != nullptr ? command->name : "unknown";
  const auto& bytes = is_read ? event.received : event.sent;
  text += (is_read ? " RD_REPLY <" : std::string(" ") + name + " >") + hex(bytes, bytes_shown);
  if (bytes.size() > bytes_shown) text += " ... " + std::to_string(bytes.size()) + " bytes";
  return text;
}

}  // namespace

std::string to_string(const Event& event) {
  const Row& row = *std::ranges::find(rows, event.kind, &Row::kind);
  std::string text(row.name);
  if (row.numbers == 2) text += in_words(event.first, {}) + in_words(event.second, row.last_words);
  if (row.numbers == 1) text += in_words(event.first, row.last_words);
  return text + hex(event.sent, event.sent.size());
}

std::string seconds(Time time) {
  constexpr std::int64_t billion = 1'000'000'000;
  std::array<char, 40> text{};
  (void)std::snprintf(text.data(), text.size(), "%lld.%09lld",
                      static_cast<long long>(time.count() / billion),
                      static_cast<long long>(time.count() % billion));
  return text.data();
}

Trace::Trace(const std::filesystem::path& path) {
  if (path.empty()) return;
  file_.reset(std::fopen(path.c_str(), "we"));
  if (file_ == nullptr) {
    (void)std::fprintf(stderr, "kestrel-sim: cannot write the trace %s: %s\n", path.c_str(),
                       std::strerror(errno));
    return;
  }
  // A killed run keeps every line up to its end.
  (void)std::setvbuf(file_.get(), nullptr, _IOLBF, BUFSIZ);
}

void Trace::event(const Event& event) {
  constexpr std::uint8_t load_opcode = 0x04;
  constexpr std::size_t load_header_bytes = 4;
  if (file_ == nullptr) return;
  const bool is_frame = event.kind == Event_kind::frame;
  line(event.at, is_frame ? frame_text(event, frames_) : to_string(event));
  frames_ += is_frame ? 1 : 0;
  if (event.kind == Event_kind::delay_ms || event.kind == Event_kind::delay_us) ++delays_;
  if (event.sent.size() > load_header_bytes && event.sent[0] == load_opcode) {
    image_bytes_ += event.sent.size() - load_header_bytes;
  }
}

void Trace::violation(Time at, const std::string& text) {
  if (file_ != nullptr) line(at, "! " + text);
}

void Trace::summary(Time at, Time waited, Time on_wire, std::uint64_t wire_bytes) {
  if (file_ == nullptr) return;
  line(at, "summary: " + seconds(waited) + " s in " + std::to_string(delays_) + " delays, " +
               seconds(on_wire) + " s for " + std::to_string(wire_bytes) + " bytes in " +
               std::to_string(frames_) + " frames" +
               (image_bytes_ == 0 ? "" : ", " + std::to_string(image_bytes_) + " of them images"));
}

void Trace::line(Time at, const std::string& text) {
  (void)std::fprintf(file_.get(), "%14s %s\n", seconds(at).c_str(), text.c_str());
}

}  // namespace sim
