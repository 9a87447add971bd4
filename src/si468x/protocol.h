// SPDX-License-Identifier: GPL-3.0-or-later
//
// Commands and replies of the Si468x. Every exchange writes a command frame, polls the chip's
// status until it is clear to send (CTS), judges the status bits and reads the reply. The features
// above send their commands through here; the bytes go out over the bus below.
//
// A reply is an array whose byte 0 is meaningless (it comes in while the read-reply command goes
// out), whose bytes 1 to 4 are the chip's status bytes, and whose data begin at byte 5. A reply
// length counts all of these.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "si468x/error_codes.h"

namespace si468x {

/// First byte of a command frame.
namespace opcode {
inline constexpr std::uint8_t read_reply = 0x00;
inline constexpr std::uint8_t power_up = 0x01;
inline constexpr std::uint8_t host_load = 0x04;
inline constexpr std::uint8_t flash_load = 0x05;
inline constexpr std::uint8_t load_init = 0x06;
inline constexpr std::uint8_t boot = 0x07;
inline constexpr std::uint8_t get_part_info = 0x08;
inline constexpr std::uint8_t get_sys_state = 0x09;
inline constexpr std::uint8_t get_func_info = 0x12;
inline constexpr std::uint8_t set_property = 0x13;
inline constexpr std::uint8_t get_property = 0x14;
inline constexpr std::uint8_t fm_tune_freq = 0x30;
inline constexpr std::uint8_t fm_seek_start = 0x31;
inline constexpr std::uint8_t fm_rsq_status = 0x32;
inline constexpr std::uint8_t fm_rds_status = 0x34;
inline constexpr std::uint8_t get_digital_service_list = 0x80;
inline constexpr std::uint8_t start_digital_service = 0x81;
inline constexpr std::uint8_t stop_digital_service = 0x82;
inline constexpr std::uint8_t get_digital_service_data = 0x84;
inline constexpr std::uint8_t dab_tune_freq = 0xB0;
inline constexpr std::uint8_t dab_digrad_status = 0xB2;
inline constexpr std::uint8_t dab_get_event_status = 0xB3;
inline constexpr std::uint8_t dab_set_freq_list = 0xB8;
inline constexpr std::uint8_t dab_get_freq_list = 0xB9;
inline constexpr std::uint8_t dab_get_time = 0xBC;
}  // namespace opcode

/// A status read: the read-reply command, four status bytes, the first two bytes of the reply's
/// data.
inline constexpr std::uint16_t status_read_bytes = 7;
/// Where the status bytes are in a reply, and where the command's own data begin.
inline constexpr std::size_t status_0 = 1;
inline constexpr std::size_t status_1 = 2;
inline constexpr std::size_t status_3 = 4;
inline constexpr std::size_t reply_data = 5;

/// Is the chip clear to send, in a frame that holds at least byte 1?
bool is_clear_to_send(const std::uint8_t* frame);

/// What the status bytes complain about, the first in the order in which they are judged.
enum class Status_fault { none, command_error, data_or_arbiter_error, non_recoverable };
/// Judge the status bytes of a frame of at least 5 bytes.
Status_fault find_status_fault(const std::uint8_t* frame);
/// 0 for a frame without a fault; otherwise `code` is stored and the result is -2 (command error,
/// non-recoverable error) or -1 (dropped data, arbiter error).
std::int16_t judge_status(const std::uint8_t* frame, Error code);

}  // namespace si468x

/// Send `cmd_len` bytes of `cmd`, wait for CTS (50 status reads, 1.23 s of waiting at the most),
/// judge the status and, when `reply_len` is not 0, read `reply_len` bytes into `reply` and judge
/// the status bytes in there. The transfer overwrites `cmd`. Both arrays are the caller's; a null
/// `reply` goes with `reply_len` 0. 0; -1 transfer, data or arbiter error; -2 refused by the chip;
/// -3 no CTS; -6 no reply buffer. The codes are those of Error::send_cmd_write to
/// Error::send_cmd_reply_status.
std::int16_t Si468x_send_cmd(std::uint8_t* cmd, std::uint8_t* reply, std::uint16_t cmd_len,
                             std::uint16_t reply_len);

/// One status read into the 7 bytes of `status`, without a command, and its judgement; CTS is not
/// looked at. 0; -1 (code 14 transfer, 114 data or arbiter error); -2 (code 114).
std::int16_t Si468x_rd_reply(std::uint8_t* status);

/// Clear `len` bytes of `buf` and read as many, without any judgement. 0, or -1 with code 56.
std::int16_t Si468x_read_reply(std::uint8_t* buf, std::uint16_t len);

/// Write a command frame without waiting for CTS; `cmd` is overwritten. 0, or -1 with code 57.
std::int16_t Si468x_send_cmd_simple(std::uint8_t* cmd, std::uint16_t len);

/// Judge a frame already read, at least 5 bytes: 0; -2 (code 58 command error, 258
/// non-recoverable); -1 (code 158).
std::int16_t Si468x_check_status_bits(std::uint8_t* reply);

std::int16_t Si468x_min(std::int16_t a, std::int16_t b);
void Si468x_clear_array(std::uint8_t* a, std::uint16_t n);
/// Copy `n` bytes one by one, the highest index first, also where the arrays overlap.
void Si468x_byte_array_copy(std::uint8_t* dst, std::uint8_t* src, std::uint16_t n);
/// Print `label`, then `n` bytes as two hex digits and a blank each, then a newline.
void Si468x_hex_print(std::uint8_t* a, std::uint16_t n, char* label);

namespace si468x {

/// A command frame of an opcode and one argument byte, as most of the reading commands are.
constexpr std::array<std::uint8_t, 2> command_with(std::uint8_t opcode, std::uint8_t argument) {
  return {opcode, argument};
}

/// Send a command without reply data. The frame is this function's own copy, since the transfer
/// overwrites it. Results and codes of Si468x_send_cmd.
template <std::size_t Command_bytes>
std::int16_t send_command(std::array<std::uint8_t, Command_bytes> command) {
  return Si468x_send_cmd(command.data(), nullptr, Command_bytes, 0);
}

/// Send a command and read a whole `reply`; otherwise as above.
template <std::size_t Command_bytes, std::size_t Reply_bytes>
std::int16_t send_command(std::array<std::uint8_t, Command_bytes> command,
                          std::array<std::uint8_t, Reply_bytes>& reply) {
  return Si468x_send_cmd(command.data(), reply.data(), Command_bytes, Reply_bytes);
}

}  // namespace si468x
