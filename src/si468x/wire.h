// SPDX-License-Identifier: GPL-3.0-or-later
//
// Numbers on the wire: the Si468x sends and takes them least significant byte first. All shifting
// and masking of the driver is done here.
#pragma once

#include <cstddef>
#include <cstdint>

namespace si468x {

/// Byte `n` of `value`, 0 the least significant: for command frames written as one braced list.
constexpr std::uint8_t octet(std::uint32_t value, unsigned n = 0) {
  return static_cast<std::uint8_t>(value >> (8 * n));
}

/// The number in `bytes` (1 to 4) bytes at `at`, least significant first.
constexpr std::uint32_t little_endian(const std::uint8_t* at, std::size_t bytes) {
  std::uint32_t value = 0;
  while (bytes > 0) value = value << 8 | at[--bytes];
  return value;
}
constexpr std::uint16_t le16(const std::uint8_t* at) {
  return static_cast<std::uint16_t>(little_endian(at, 2));
}
constexpr std::uint32_t le32(const std::uint8_t* at) { return little_endian(at, 4); }

/// Bit `n` of a byte.
constexpr bool has_bit(std::uint8_t byte, unsigned n) { return (byte >> n & 1U) != 0; }

/// Where a number is in a frame: `width` bits from bit `shift` of byte `byte` upwards.
struct Wire_bits {
  std::uint8_t byte = 0;
  std::uint8_t shift = 0;
  std::uint8_t width = 1;

  /// The last byte that holds some of it.
  [[nodiscard]] constexpr std::size_t last_byte() const {
    return static_cast<std::size_t>(byte) + (shift + width - 1U) / 8U;
  }
  [[nodiscard]] constexpr std::uint32_t read(const std::uint8_t* frame) const {
    const auto word = little_endian(frame + byte, last_byte() - byte + 1) >> shift;
    return width == 32 ? word : word & ((std::uint32_t{1} << width) - 1);
  }
};

constexpr Wire_bits bit(std::uint8_t byte, std::uint8_t n) { return {byte, n, 1}; }
constexpr Wire_bits bits(std::uint8_t byte, std::uint8_t high, std::uint8_t low) {
  return {byte, low, static_cast<std::uint8_t>(high - low + 1)};
}
/// The low `width` bits of the little-endian number that begins at `byte`.
constexpr Wire_bits low_bits(std::uint8_t byte, std::uint8_t width) { return {byte, 0, width}; }
constexpr Wire_bits u8(std::uint8_t byte) { return low_bits(byte, 8); }
constexpr Wire_bits u16(std::uint8_t byte) { return low_bits(byte, 16); }
constexpr Wire_bits u32(std::uint8_t byte) { return low_bits(byte, 32); }

}  // namespace si468x
