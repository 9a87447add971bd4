// SPDX-License-Identifier: GPL-3.0-or-later
//
// In the trace a frame shows the direction that carries information: what a
// command sent, what a read received.
#include "sim/events.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "sim/receiver.h"

namespace sim {
namespace {

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
  return event.text + hex(event.sent, event.sent.size());
}

std::string seconds(Time time) {
  constexpr std::int64_t billion = 1'000'000'000;
  const auto fraction = std::to_string(billion + time.count() % billion);  // with a 1 before it
  return std::to_string(time.count() / billion) + '.' + fraction.substr(1);
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
  if (file_ == nullptr) return;
  line(event.at, event.is_frame() ? frame_text(event, frames_++) : event.text);
  delays_ += event.text.starts_with("delay") ? 1 : 0;
}

void Trace::summary(Time at, Time waited, Time on_wire, std::uint64_t wire_bytes) {
  line(at, "summary: " + seconds(waited) + " s in " + std::to_string(delays_) + " delays, " +
               seconds(on_wire) + " s for " + std::to_string(wire_bytes) + " bytes in " +
               std::to_string(frames_) + " frames");
}

void Trace::line(Time at, const std::string& text) {
  if (file_ == nullptr) return;
  (void)std::fprintf(file_.get(), "%14s %s\n", seconds(at).c_str(), text.c_str());
}

}  // namespace sim
