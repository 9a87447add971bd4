// SPDX-License-Identifier: GPL-3.0-or-later
//
// Writes the trace. A frame shows the direction that carries information: what a
// command sent, what a read received.
#include "sim/trace.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "sim/chip.h"

namespace sim {
namespace {

constexpr std::size_t bytes_shown = 32;
constexpr std::uint8_t read_opcode = 0x00;
constexpr std::uint8_t load_opcode = 0x04;
constexpr std::size_t load_header_bytes = 4;

std::string frame_text(const Event& event, std::uint64_t number) {
  std::string text = "frame " + std::to_string(number);
  if (event.sent.empty()) {
    return text + " empty";
  }
  const bool is_read = event.sent[0] == read_opcode;
  const Command* const command = is_read ? nullptr : find_command(event.sent[0]);
  text += is_read              ? " RD_REPLY"
          : command != nullptr ? ' ' + std::string(command->name)
                               : " unknown";
  const auto& bytes = is_read ? event.received : event.sent;
  text += (is_read ? " < " : " > ") + hex(bytes, bytes_shown);
  if (bytes.size() > bytes_shown) {
    text += " ... " + std::to_string(bytes.size()) + " bytes";
  }
  return text;
}

}  // namespace

std::string seconds(Time time) {
  constexpr std::int64_t billion = 1'000'000'000;
  std::array<char, 40> text{};
  (void)std::snprintf(text.data(), text.size(), "%lld.%09lld",
                      static_cast<long long>(time.count() / billion),
                      static_cast<long long>(time.count() % billion));
  return text.data();
}

Trace::Trace(const std::filesystem::path& path) {
  if (path.empty()) {
    return;
  }
  file_.reset(std::fopen(path.c_str(), "we"));
  if (file_ == nullptr) {
    (void)std::fprintf(stderr, "kestrel-sim: cannot write the trace %s: %s\n", path.c_str(),
                       std::strerror(errno));
    return;
  }
  // A killed run keeps every line up to its end.
  (void)std::setvbuf(file_.get(), nullptr, _IOLBF, BUFSIZ);
}

void Trace::event(const Event& event, std::uint64_t frame_number) {
  if (file_ != nullptr) {
    if (event.sent.size() > load_header_bytes && event.sent[0] == load_opcode) {
      image_bytes_ += event.sent.size() - load_header_bytes;
    }
    line(event.at,
         event.kind == Event_kind::frame ? frame_text(event, frame_number) : to_string(event));
  }
}

void Trace::note(Time at, const std::string& text) {
  if (file_ != nullptr) {
    line(at, "! " + text);
  }
}

void Trace::summary(const Totals& totals) {
  if (file_ != nullptr) {
    line(totals.simulated,
         "summary: " + seconds(totals.waited) + " s in " + std::to_string(totals.delays) +
             " delays, " + seconds(totals.on_wire) + " s for " + std::to_string(totals.wire_bytes) +
             " bytes in " + std::to_string(totals.frames) + " frames" +
             (image_bytes_ == 0 ? "" : ", " + std::to_string(image_bytes_) + " of them images"));
  }
}

void Trace::line(Time at, const std::string& text) {
  (void)std::fprintf(file_.get(), "%14s %s\n", seconds(at).c_str(), text.c_str());
}

}  // namespace sim
