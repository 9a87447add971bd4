// SPDX-License-Identifier: GPL-3.0-or-later
//
// The channel raster, the noise between the stations, and dynamic labels: a text
// cut into segments, and the commands that go with it.
#include "sim/broadcast.h"

#include "sim/receiver.h"

namespace sim {
namespace {

constexpr unsigned transport_shift = 14;
constexpr unsigned data_groups_bit = 12;
constexpr unsigned packet_id_mask = 0x0FFF;
constexpr unsigned stream_id_mask = 0x3F;

constexpr std::size_t segment_bytes = 16;
constexpr std::size_t most_segments = 8;

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

std::uint16_t Component::word() const {
  const bool is_packet = transport == Transport::packet;
  unsigned word = static_cast<unsigned>(transport) << transport_shift;
  word |= id & (is_packet ? packet_id_mask : stream_id_mask);
  word |= is_packet && uses_data_groups ? 1U << data_groups_bit : 0U;
  return static_cast<std::uint16_t>(word);
}

const std::array<std::uint32_t, band_iii_blocks>& band_iii_khz() {
  // 10N, 11N and 12N lie 160 kHz above 10A, 11A and 12A; the band plan has no regular step to
  // compute the rest from.
  static constexpr std::array<std::uint32_t, band_iii_blocks> blocks = {
      174928, 176640, 178352, 180064,                  // 5A to 5D
      181936, 183648, 185360, 187072,                  // 6A to 6D
      188928, 190640, 192352, 194064,                  // 7A to 7D
      195936, 197648, 199360, 201072,                  // 8A to 8D
      202928, 204640, 206352, 208064,                  // 9A to 9D
      209936, 210096, 211648, 213360, 215072,          // 10A 10N 10B 10C 10D
      216928, 217088, 218640, 220352, 222064,          // 11A 11N 11B 11C 11D
      223936, 224096, 225648, 227360, 229072,          // 12A 12N 12B 12C 12D
      230784, 232496, 234208, 235776, 237488, 239200,  // 13A to 13F
  };
  return blocks;
}

std::uint8_t noise_dbuv(std::uint32_t khz) {
  constexpr std::uint32_t lowest_dbuv = 4;
  constexpr std::uint32_t spread_db = 9;
  return static_cast<std::uint8_t>(lowest_dbuv + (khz / 16 * 2654435761U >> 16) % spread_db);
}

Air default_air() { return {.ensembles = default_ensembles(), .stations = default_stations()}; }

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
  if (characters.empty()) packets.push_back({prefix(toggle, true, true, true, remove_label), 0});
  for (auto& packet : packets) packet.push_back(0);
  return packets;
}

}  // namespace sim
