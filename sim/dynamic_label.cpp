// SPDX-License-Identifier: GPL-3.0-or-later
//
// Cuts a text into segments.
#include "sim/dynamic_label.h"

#include <algorithm>

#include "sim/chip.h"

namespace sim {
namespace {

constexpr std::size_t segment_bytes = 16;
constexpr std::size_t most_segments = 8;

// Content types of tags.
constexpr std::uint8_t item_title = 1;
constexpr std::uint8_t item_artist = 4;

/// First byte of a prefix: `low_bits` are a segment's length less 1, or a command.
std::uint8_t prefix(bool toggle, bool is_first, bool is_last, bool is_command,
                    std::size_t low_bits) {
  return join(flag(toggle, 7), flag(is_first, 6), flag(is_last, 5), flag(is_command, 4),
              static_cast<std::uint8_t>(low_bits & 0x0F));
}

/// A tag for `part`, if the text has it: content type, first character, and last one relative to
/// it.
void append_tag(std::vector<std::uint8_t>& to, const Text& text, std::uint8_t type,
                const std::string& part) {
  const std::size_t at = text.characters.find(part);
  if (!part.empty() && at != std::string::npos) {
    to.insert(to.end(), {type, static_cast<std::uint8_t>(at & 0x7F),
                         static_cast<std::uint8_t>((part.size() - 1) & 0x7F)});
  }
}

}  // namespace

std::vector<std::vector<std::uint8_t>> dynamic_label_packets(const Text& text, bool toggle) {
  constexpr std::uint8_t remove_label = 1;
  constexpr std::uint8_t label_plus = 2;
  const std::string characters = text.characters.substr(0, segment_bytes * most_segments);
  std::vector<std::vector<std::uint8_t>> packets;
  for (std::size_t at = 0; at < characters.size(); at += segment_bytes) {
    const std::string segment = characters.substr(at, segment_bytes);
    const bool is_last = at + segment_bytes >= characters.size();
    // The first segment tells the character set, the others their number.
    const std::size_t field = at == 0 ? text.charset : at / segment_bytes;
    auto& packet = packets.emplace_back();
    packet = {prefix(toggle, at == 0, is_last, false, segment.size() - 1),
              static_cast<std::uint8_t>(field << 4)};
    packet.insert(packet.end(), segment.begin(), segment.end());
  }
  std::vector<std::uint8_t> tags;
  append_tag(tags, text, item_title, text.title);
  append_tag(tags, text, item_artist, text.artist);
  if (!tags.empty()) {
    // The command links itself to the label's toggle bit; the item it describes is on the air.
    const auto count = static_cast<std::uint8_t>(tags.size() / 3 - 1);
    auto& packet = packets.emplace_back();
    packet = {prefix(toggle, true, true, true, label_plus),
              join(flag(toggle, 7), static_cast<std::uint8_t>(tags.size())),
              join(flag(toggle, 3), flag(true, 2), count)};
    packet.insert(packet.end(), tags.begin(), tags.end());
  }
  if (characters.empty()) {
    packets.push_back({prefix(toggle, true, true, true, remove_label), 0});
  }
  for (auto& packet : packets) {
    packet.push_back(0);
  }
  return packets;
}

}  // namespace sim
