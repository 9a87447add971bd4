// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/boot.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "si468x/bus.h"
#include "si468x/firmware_images.h"
#include "si468x/input_file.h"
#include "si468x/protocol.h"
#include "si468x/wire.h"

using namespace si468x;

namespace {

constexpr unsigned reset_low_ms = 200;
constexpr unsigned reset_settle_ms = 50;
constexpr unsigned after_patch_ms = 50;
constexpr unsigned before_boot_ms = 100;
constexpr unsigned after_failed_load_ms = 2000;

constexpr std::uint32_t crystal_hz = 19'200'000;
constexpr std::array<std::uint8_t, 16> power_up_command{
    opcode::power_up,
    0x00,  // no CTS interrupt
    0x1F,  // clock mode: crystal oscillator; TR_SIZE 15
    0x7F,  // crystal bias current
    octet(crystal_hz, 0),
    octet(crystal_hz, 1),
    octet(crystal_hz, 2),
    octet(crystal_hz, 3),
    0x20,  // crystal load capacitance
    0x10,  // fixed
    0x00,
    0x00,
    0x00,
    0x18,  // crystal bias current in run mode
    0x00,
    0x00};

// Status 3 of a chip without any error: power-up state 2 (boot loader) or 3 (firmware running).
constexpr std::uint8_t boot_loader_runs = 0x80;
constexpr std::uint8_t firmware_runs = 0xC0;
constexpr std::size_t short_reply_bytes = 5;  // the status bytes alone

constexpr std::array<std::uint8_t, 4> host_load_header{opcode::host_load, 0x00, 0x00, 0x00};
constexpr std::size_t host_load_frame_limit = 4096;
constexpr std::size_t chunk_limit = host_load_frame_limit - host_load_header.size();
using Chunk = std::array<std::uint8_t, chunk_limit>;

constexpr unsigned first_load_wait_us = 50;
constexpr unsigned load_wait_step_us = 100;
constexpr unsigned load_poll_limit = 50;

/// Send a command and compare the power-up state and error bits that its reply shows.
template <std::size_t Command_bytes>
std::int16_t change_state(const std::array<std::uint8_t, Command_bytes>& command,
                          std::uint8_t wanted_status_3, Error command_code, Error state_code,
                          std::int16_t state_result) {
  std::array<std::uint8_t, short_reply_bytes> reply{};
  if (const auto outcome = send_command(command, reply); outcome < 0) {
    return failed(command_code, outcome);
  }
  if (reply[status_3] != wanted_status_3) return failed(state_code, state_result);
  return result::ok;
}

/// Wait until the chip has taken a chunk. A block is written without the protocol's command, so it
/// has shorter waits of its own.
std::int16_t wait_for_loaded_chunk() {
  unsigned wait_us = first_load_wait_us;
  for (unsigned poll = 0; poll < load_poll_limit; ++poll) {
    std::array<std::uint8_t, status_read_bytes> status{};
    // A failed read left zeros, which say "not ready", or what did arrive, which is judged as it
    // is.
    (void)Si468x_read_reply(status.data(), status_read_bytes);
    if (is_clear_to_send(status.data())) return judge_status(status.data(), Error::cts_status);
    Si468x_delay_us(wait_us);
    wait_us += load_wait_step_us;
  }
  return failed(Error::no_cts, result::timed_out);
}

}  // namespace

void Si468x_reset() {
  Si468x_SPI_RSTB_low();
  Si468x_delay_ms(reset_low_ms);
  Si468x_SPI_RSTB_high();
  Si468x_delay_ms(reset_settle_ms);
}

std::int16_t Si468x_power_up() {
  return change_state(power_up_command, boot_loader_runs, Error::power_up, Error::power_up_state,
                      result::wrong_state);
}

std::int16_t Si468x_load_init() { return send_command(command_with(opcode::load_init, 0x00)); }

std::int16_t Si468x_load_firmware_static(const unsigned char* image, unsigned int size) {
  if (size == 0) return failed(Error::load_static_empty, result::invalid);
  Chunk chunk;
  for (std::size_t offset = 0; offset < size;) {
    const auto length = std::min(chunk.size(), size - offset);
    std::copy_n(image + offset, length, chunk.begin());
    const auto outcome =
        Si468x_load_firmware_datapackage(chunk.data(), static_cast<unsigned>(length));
    if (outcome != 0) return failed(Error::load_static_chunk, outcome);
    offset += length;
  }
  return result::ok;
}

std::int16_t Si468x_load_firmware_datapackage(unsigned char* data, unsigned int length) {
  auto header = host_load_header;
  Si468x_SPI_CS_low();
  // The bus cannot fail; what the chip made of the block its status tells.
  (void)Si468x_SPI_RW_data_noCS(header.data(), header.size());
  (void)Si468x_SPI_RW_data_noCS(data, static_cast<std::uint16_t>(length));
  Si468x_SPI_CS_high();
  return wait_for_loaded_chunk();
}

std::int16_t Si468x_load_firmware(char* path) {
  const Input_file file(std::fopen(path, "rb"));
  if (!file) return failed(Error::load_file_open, result::invalid);
  long size = 0;
  if (std::fseek(file.get(), 0, SEEK_END) == 0) size = std::ftell(file.get());
  if (size <= 0 || std::fseek(file.get(), 0, SEEK_SET) != 0) {
    return failed(Error::load_file_empty, result::invalid);
  }
  Chunk chunk;
  std::uint32_t chunk_index = 0;
  for (auto left = static_cast<std::size_t>(size); left > 0; ++chunk_index) {
    const auto length = std::min(chunk.size(), left);
    if (std::fread(chunk.data(), 1, length, file.get()) != length) {
      return failed(numbered(Error::load_file_read, chunk_index), result::invalid);
    }
    const auto outcome =
        Si468x_load_firmware_datapackage(chunk.data(), static_cast<unsigned>(length));
    if (outcome != 0) return failed(Error::load_file_chunk, outcome);
    left -= length;
  }
  return result::ok;
}

std::int16_t Si468x_load_firmware_flash(unsigned int address) {
  std::array<std::uint8_t, 12> frame{opcode::flash_load,
                                     0x00,
                                     0x00,
                                     0x00,
                                     octet(address, 0),
                                     octet(address, 1),
                                     octet(address, 2),
                                     octet(address, 3),
                                     0x00,
                                     0x00,
                                     0x00,
                                     0x00};
  const auto outcome = Si468x_SPI_RW_data(frame.data(), frame.size());
  return outcome == 0 ? outcome : failed(Error::load_flash, outcome);
}

std::int16_t Si468x_boot() {
  return change_state(command_with(opcode::boot, 0x00), firmware_runs, Error::boot,
                      Error::boot_state, result::unfit);
}

void Si468x_power_down() {
  Si468x_SPI_RSTB_low();
  Si468x_SPI_shutdown();
}

Boot_step Si468x_load_and_boot(unsigned char dab) {
  // Starting SPI0 a second time is harmless, and a chip without a bus fails the power-up just
  // below.
  (void)Si468x_bus_enable();
  Si468x_reset();
  if (Si468x_power_up() != 0) return Boot_step::power_up;
  // A chip that did not take LOAD_INIT refuses the blocks that follow.
  (void)Si468x_load_init();
  if (Si468x_load_firmware_static(fw_rom00_patch016bin, sizeof fw_rom00_patch016bin) != 0) {
    return Boot_step::patch;
  }
  Si468x_delay_ms(after_patch_ms);
  (void)Si468x_load_init();
  const auto outcome =
      dab != 0 ? Si468x_load_firmware_static(fw_dab_radio_5_0_5bin, sizeof fw_dab_radio_5_0_5bin)
               : Si468x_load_firmware_static(fw_fmhd_radio_5_0_4bin, sizeof fw_fmhd_radio_5_0_4bin);
  if (outcome != 0) return Boot_step::firmware;
  Si468x_delay_ms(before_boot_ms);
  return Si468x_boot() == 0 ? Boot_step::done : Boot_step::boot;
}

void Si468x_give_up_load() {
  Si468x_SPI_RSTB_low();
  Si468x_bus_disable();
  Si468x_delay_ms(after_failed_load_ms);
}

std::int16_t power_up_and_load_fw(unsigned char dab) {
  switch (Si468x_load_and_boot(dab)) {
    case Boot_step::power_up:
      std::puts("Could not power up the Si468x");
      return 0;
    case Boot_step::patch:
      Si468x_give_up_load();
      std::puts("Patch not transmitted successfully\n");
      return 0;
    case Boot_step::firmware:
      std::puts("Firmware not transmitted successfully\n");
      Si468x_give_up_load();
      return 0;
    case Boot_step::boot:
      std::puts("Boot up failed\n");
      return 0;
    case Boot_step::done:
      break;
  }
  std::puts("Boot up successful\n");
  return 1;
}
