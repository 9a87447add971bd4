// SPDX-License-Identifier: GPL-3.0-or-later
//
// Power-up, loading and boot, what the chip says about itself, and its properties.
#include <algorithm>
#include <array>

#include "sim/receiver.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t patch_bytes = 5796;
constexpr std::uint32_t dab_image_bytes = 521448;
constexpr std::uint32_t fmhd_image_bytes = 530180;
constexpr std::size_t load_header_bytes = 4;
constexpr std::size_t load_frame_bytes = 4096;

// The board's crystal: 19.2 MHz, its bias currents and load. A chip that is powered up for another
// crystal runs on a wrong clock, which this one refuses outright.
constexpr std::array<std::uint8_t, 16> power_up_frame = {
    0x01, 0x00, 0x1F, 0x7F, 0x00, 0xF8, 0x24, 0x01, 0x20, 0x10, 0x00, 0x00, 0x00, 0x18, 0x00, 0x00};

Refusal power_up(Receiver& chip, Frame frame) {
  if (!std::ranges::equal(frame, power_up_frame)) return "arguments do not fit the board's crystal";
  chip.state.phase = Phase::loader;
  return nullptr;
}

Refusal load_init(Receiver& chip, Frame /*frame*/) {
  Receiver_state& state = chip.state;
  if (state.load_inits < 2) {
    ++state.load_inits;
  } else {
    state.image_bytes = 0;
  }
  return nullptr;
}

Refusal host_load(Receiver& chip, Frame frame) {
  Receiver_state& state = chip.state;
  if (!is_all_zero(frame.subspan(1, load_header_bytes - 1))) return "arguments are not 0";
  if (state.load_inits == 0) return "no LOAD_INIT before it";
  std::uint32_t& loaded = state.load_inits == 1 ? state.patch_bytes : state.image_bytes;
  loaded += static_cast<std::uint32_t>(frame.size() - load_header_bytes);
  return nullptr;
}

Refusal boot(Receiver& chip, Frame /*frame*/) {
  if (chip.state.patch_bytes != patch_bytes) return "the patch is not whole";
  if (chip.state.image_bytes != dab_image_bytes && chip.state.image_bytes != fmhd_image_bytes) {
    return "no whole image was loaded";
  }
  start_firmware(chip.state,
                 chip.state.image_bytes == dab_image_bytes ? Firmware::dab : Firmware::fmhd);
  return nullptr;
}

Refusal get_part_info(Receiver& chip, Frame /*frame*/) {
  constexpr std::uint8_t mask_revision = 1;
  constexpr std::uint8_t rom_id = 0x10;
  constexpr std::uint16_t part_number = 4688;
  constexpr std::size_t reply_bytes = 19;
  chip.reply = {mask_revision, rom_id, reserved_byte, reserved_byte};
  append(chip.reply, part_number, 2);
  chip.reply.resize(reply_bytes, reserved_byte);
  return nullptr;
}

Refusal get_sys_state(Receiver& chip, Frame /*frame*/) {
  chip.reply = {static_cast<std::uint8_t>(chip.state.firmware), reserved_byte};
  return nullptr;
}

Refusal get_func_info(Receiver& chip, Frame /*frame*/) {
  constexpr unsigned no_svn_bit = 7;
  constexpr unsigned build_location_bit = 4;
  constexpr std::uint8_t reserved_bits = 0x4C;
  // The two images differ in every field; the FM one was built outside revision control, where the
  // bytes after the flags mean nothing.
  if (chip.state.firmware == Firmware::dab) {
    chip.reply = {5, 0, 5, join(reserved_bits, flag(true, build_location_bit))};
    append(chip.reply, 28731, 4);
  } else {
    chip.reply = {5, 0, 4, join(reserved_bits, flag(true, no_svn_bit), std::uint8_t{0x03})};
    append(chip.reply, 0x5A5A5A5A, 4);
  }
  return nullptr;
}

// Properties: 16-bit values with defaults and limits.
struct Property {
  std::uint16_t id;
  std::uint16_t initial;
  std::uint16_t highest;
  std::uint8_t exists_in;
};

constexpr auto properties = std::to_array<Property>({
    {0x0200, 0x8000, 0xFFFF, in_firmware},  // digital output: clock source
    {0x0202, 0x1800, 0xFFFF, in_firmware},  // digital output: format
    {0x0300, 63, 63, in_firmware},          // analogue volume
    {0x0301, 0, 3, in_firmware},            // mute, one bit per channel
    {0x0800, 1, 0x8003, in_firmware},       // pins: analogue, I2S, interrupt
    {0x3900, 0, 0xFFFF, in_fmhd},           // audio de-emphasis
    {0x3C02, 0, 0x00F1, in_fmhd},           // RDS decoder
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

// Clear-to-send comes sooner than on silicon, which boots for tens of milliseconds: nothing here
// loads slower than the bus, so that what a boot costs is the host's doing.
constexpr auto system_table = std::to_array<Command>({
    {0x01, "POWER_UP", 0xFF, 16, 16, when_waiting, 40us, power_up},
    {0x04, "HOST_LOAD", 0x00, load_header_bytes + 1, load_frame_bytes, in_loader, 0us, host_load},
    {0x06, "LOAD_INIT", 0x00, 2, 2, in_loader, 0us, load_init},
    {0x07, "BOOT", 0x00, 2, 2, in_loader, 900us, boot},
    {0x08, "GET_PART_INFO", 0x00, 2, 2, when_powered, 20us, get_part_info},
    {0x09, "GET_SYS_STATE", 0x00, 2, 2, when_powered, 0us, get_sys_state},
    {0x12, "GET_FUNC_INFO", 0x00, 2, 2, in_firmware, 0us, get_func_info},
    {0x13, "SET_PROPERTY", 0x00, 6, 6, in_firmware, 30us, set_property},
    {0x14, "GET_PROPERTY", 0x01, 4, 4, in_firmware, 0us, get_property},
});

}  // namespace

std::span<const Command> system_commands() { return system_table; }

void start_firmware(Receiver_state& state, Firmware firmware) {
  state = Receiver_state{};
  state.reset_high = true;
  state.phase = Phase::running;
  state.firmware = firmware;
  if (firmware == Firmware::dab) {
    const auto& blocks = band_iii_khz();
    state.frequencies.assign(blocks.begin(), blocks.end());
  }
}

std::uint16_t property(const Receiver_state& state, std::uint16_t id) {
  const auto written = state.properties.find(id);
  if (written != state.properties.end()) return written->second;
  const Property* const row = find_property(state, id);
  return row != nullptr ? row->initial : std::uint16_t{0};
}

}  // namespace sim
