// SPDX-License-Identifier: GPL-3.0-or-later
//
// The properties of both firmwares: 16-bit values with defaults and limits.
#include <algorithm>
#include <array>

#include "sim/receiver.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

struct Property {
  std::uint16_t id;
  std::uint16_t initial;
  std::uint16_t highest;
  std::uint8_t exists_in;
};

constexpr auto properties = std::to_array<Property>({
    {0x0000, 0x0000, 0xFFFF, in_firmware},  // interrupt sources
    {0x0001, 0x0000, 0xFFFF, in_firmware},  // interrupt repeat
    {0x0200, 0x8000, 0xFFFF, in_firmware},  // digital output: clock source
    {0x0201, 48000, 48000, in_firmware},    // digital output: sample rate in Hz
    {0x0202, 0x1800, 0xFFFF, in_firmware},  // digital output: format
    {0x0300, 63, 63, in_firmware},          // analogue volume
    {0x0301, 0, 3, in_firmware},            // mute, one bit a channel
    {0x0302, 0, 1, in_firmware},            // mono
    {0x0800, 1, 0x8003, in_firmware},       // pins: analogue, I2S, interrupt
    {0x1710, 0, 0xFFFF, in_firmware},       // antenna tuning: slope
    {0x1711, 0, 0xFFFF, in_firmware},       // antenna tuning: intercept
    {0x1712, 1, 1, in_firmware},            // antenna switch
    {0x3100, 8750, 10800, in_fmhd},         // seek: lowest frequency, 10 kHz
    {0x3101, 10800, 10800, in_fmhd},        // seek: highest frequency, 10 kHz
    {0x3102, 10, 20, in_fmhd},              // seek: spacing, 10 kHz
    {0x3202, 17, 127, in_fmhd},             // lowest RSSI of a valid station
    {0x3204, 10, 127, in_fmhd},             // lowest SNR of a valid station
    {0x3900, 0, 0xFFFF, in_fmhd},           // audio de-emphasis
    {0x3C00, 0, 0xFFFF, in_fmhd},           // RDS interrupt sources
    {0x3C01, 10, 14, in_fmhd},              // RDS FIFO level that counts as full
    {0x3C02, 0, 0x00F1, in_fmhd},           // RDS decoder
    {0x8100, 0, 0xFFFF, in_dab},            // service interrupt sources
    {0xB201, 127, 0xFFFF, in_dab},          // RSSI above this raises its flag
    {0xB202, 0xFF80, 0xFFFF, in_dab},       // RSSI below this (signed) raises its flag
    {0xB300, 0, 0xFFFF, in_dab},            // event interrupt sources
    {0xB400, 5, 0xFFFF, in_dab},            // programme associated data
});

const Property* find_property(const Receiver_state& state, std::uint32_t id) {
  const std::uint8_t firmware = state.firmware == Firmware::dab ? in_dab : in_fmhd;
  const auto* const found = std::ranges::find(properties, id, &Property::id);
  return found != properties.end() && (found->exists_in & firmware) != 0 ? found : nullptr;
}

Refusal set_property(Receiver& chip, Frame frame) {
  const Property* const row = find_property(chip.state, number_at(frame, 2, 2));
  if (row == nullptr) return "no such property";
  const std::uint32_t value = number_at(frame, 4, 2);
  if (value > row->highest) return "value out of the property's range";
  chip.state.properties[row->id] = static_cast<std::uint16_t>(value);
  return nullptr;
}

Refusal get_property(Receiver& chip, Frame frame) {
  if (frame[1] != 1) return "not asked for exactly one property";
  const Property* const row = find_property(chip.state, number_at(frame, 2, 2));
  if (row == nullptr) return "no such property";
  append(chip.reply, property(chip.state, row->id), 2);
  return nullptr;
}

constexpr auto commands = std::to_array<Command>({
    {0x13, "SET_PROPERTY", 0x00, 6, 6, in_firmware, 30us, set_property},
    {0x14, "GET_PROPERTY", 0x01, 4, 4, in_firmware, 0us, get_property},
});

}  // namespace

std::span<const Command> property_commands() { return commands; }

std::uint16_t property(const Receiver_state& state, std::uint16_t id) {
  const auto written = state.properties.find(id);
  if (written != state.properties.end()) return written->second;
  const Property* const row = find_property(state, id);
  return row != nullptr ? row->initial : std::uint16_t{0};
}

}  // namespace sim
