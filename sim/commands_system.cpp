// SPDX-License-Identifier: GPL-3.0-or-later
//
// Power-up, loading and boot, and what the chip says about itself.
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

// No image is that large; counting stops there so that no flood of loads can wrap the count.
constexpr std::uint32_t most_loaded_bytes = 1U << 24;

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
  loaded = std::min(loaded + static_cast<std::uint32_t>(frame.size() - load_header_bytes),
                    most_loaded_bytes);
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
  // bytes behind the flags mean nothing.
  if (chip.state.firmware == Firmware::dab) {
    chip.reply = {5, 0, 5, join(reserved_bits, flag(true, build_location_bit))};
    append(chip.reply, 28731, 4);
  } else {
    chip.reply = {5, 0, 4, join(reserved_bits, flag(true, no_svn_bit), std::uint8_t{0x03})};
    append(chip.reply, 0x5A5A5A5A, 4);
  }
  return nullptr;
}

// Clear-to-send comes sooner than on silicon, which boots for tens of milliseconds: nothing here
// loads slower than the bus, so that what a boot costs is the host's doing.
constexpr auto commands = std::to_array<Command>({
    {0x01, "POWER_UP", 0xFF, 16, 16, when_waiting, 40us, power_up},
    {0x04, "HOST_LOAD", 0x00, load_header_bytes + 1, load_frame_bytes, in_loader, 0us, host_load},
    {0x06, "LOAD_INIT", 0x00, 2, 2, in_loader, 0us, load_init},
    {0x07, "BOOT", 0x00, 2, 2, in_loader, 900us, boot},
    {0x08, "GET_PART_INFO", 0x00, 2, 2, when_powered, 20us, get_part_info},
    {0x09, "GET_SYS_STATE", 0x00, 2, 2, when_powered, 0us, get_sys_state},
    {0x12, "GET_FUNC_INFO", 0x00, 2, 2, in_firmware, 0us, get_func_info},
});

}  // namespace

std::span<const Command> system_commands() { return commands; }

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

}  // namespace sim
