// SPDX-License-Identifier: GPL-3.0-or-later
//
// The channel raster, the noise between the stations, and the broadcasts put
// together.
#include "sim/broadcast.h"

namespace sim {
namespace {

constexpr unsigned transport_shift = 14;
constexpr unsigned data_groups_bit = 12;
constexpr unsigned packet_id_mask = 0x0FFF;
constexpr unsigned stream_id_mask = 0x3F;

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

}  // namespace sim
