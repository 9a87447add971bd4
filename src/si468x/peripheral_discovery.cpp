// SPDX-License-Identifier: GPL-3.0-or-later
//
// The device tree's ranges property maps bus addresses to the processor's: on most models its words
// are child address, base, size; the Pi 4 has 64-bit parent addresses, so both move up by one word.
#include "si468x/peripheral_discovery.h"

#include <bcm2835.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "si468x/board_file.h"
#include "si468x/input_file.h"

namespace {

/// Byte offsets of the two big-endian words in the ranges file.
struct Range_offsets {
  long base;
  long size;
};
constexpr Range_offsets most_models{4, 8};
constexpr Range_offsets pi_4{8, 12};

// The model string begins "Raspberry Pi ", so that this byte holds the model's digit.
constexpr long model_digit_offset = 13;

std::optional<std::uint8_t> read_model_version() {
  const Input_file model(open_board_file("/proc/device-tree/model", "rb"));
  if (!model || std::fseek(model.get(), model_digit_offset, SEEK_SET) != 0) return std::nullopt;
  const int digit = std::fgetc(model.get());
  if (digit == EOF) return std::nullopt;
  return static_cast<std::uint8_t>(digit - '0');
}

Range_offsets choose_offsets() {
  constexpr std::uint8_t pi_zero = 'Z' - '0';
  const auto version = read_model_version();
  if (!version || *version <= 3) return most_models;
  if (*version == 4) return pi_4;
  if (*version == pi_zero) {
    std::fputs("Guessing Raspberry Pi version: Pi Zero\n", stderr);
    return most_models;
  }
  std::fprintf(
      stderr,
      "bcm2835_init: Unsupported hardware version or error reading version %d\n"
      "Trying with Raspberry Pi 3 offsets, even without knowing there is hardware support. "
      "Expect further errors.\n",
      *version);
  return most_models;
}

std::optional<std::uint32_t> read_big_endian_word(std::FILE* file, long offset) {
  std::array<std::uint8_t, 4> bytes{};
  if (std::fseek(file, offset, SEEK_SET) != 0) return std::nullopt;
  if (std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size()) return std::nullopt;
  std::uint32_t word = 0;
  for (const auto byte : bytes) word = word << 8 | byte;
  return word;
}

}  // namespace

void discover_peripherals() {
  const auto offsets = choose_offsets();
  const Input_file ranges(open_board_file("/proc/device-tree/soc/ranges", "rb"));
  if (!ranges) return;
  if (const auto base = read_big_endian_word(ranges.get(), offsets.base)) {
    bcm2835_peripherals_base = peripheral_address<decltype(bcm2835_peripherals_base)>(*base);
  }
  if (const auto size = read_big_endian_word(ranges.get(), offsets.size)) {
    bcm2835_peripherals_size = static_cast<decltype(bcm2835_peripherals_size)>(*size);
  }
}
