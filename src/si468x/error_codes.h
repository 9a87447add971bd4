// SPDX-License-Identifier: GPL-3.0-or-later
//
// Results and error codes of the driver, each said once. An operation has a base number; the step
// that failed adds a multiple of 100. 21, 160 and 260 serve two or more operations each: there only
// the caller knows which one failed.
#pragma once

#include <cstdint>

/// Code of the last failure, an `Error`; 0 until one happens. Nothing clears it.
extern std::uint32_t Si468x_ErrorCode;

/// Store `code` in Si468x_ErrorCode. The first argument is not used.
void Si468x_failure(std::int16_t, std::uint32_t code);

namespace si468x {

/// What a driver operation returns: 0, or one of these.
namespace result {
inline constexpr std::int16_t ok = 0;
inline constexpr std::int16_t transfer_failed = -1;  ///< bus failure, or a data or arbiter error
inline constexpr std::int16_t refused = -2;          ///< command error or non-recoverable error
inline constexpr std::int16_t timed_out = -3;        ///< the chip never became ready
inline constexpr std::int16_t unfit = -4;            ///< boot failed; a list that does not fit
inline constexpr std::int16_t wrong_state = -5;      ///< powered up into another state than asked
inline constexpr std::int16_t invalid = -6;  ///< invalid request or index; read-back differs
}  // namespace result

/// What `Si468x_ErrorCode` holds after a failure: the operation and its step.
enum class Error : std::uint32_t {
  bus_init = 1,                   ///< Si468x_bus_init: the setup failed
  bus_enable = 3,                 ///< Si468x_bus_enable: SPI0 could not be started
  power_up = 4,                   ///< Si468x_power_up: POWER_UP failed
  power_up_state = 104,           ///< Si468x_power_up: status 3 is not 0x80
  load_file_open = 7,             ///< Si468x_load_firmware: the file cannot be opened
  load_file_empty = 107,          ///< Si468x_load_firmware: the file is empty
  load_file_chunk = 207,          ///< Si468x_load_firmware: a chunk failed
  load_file_read = 1007,          ///< Si468x_load_firmware: short read; + 100 per chunk
  load_static_empty = 8,          ///< Si468x_load_firmware_static: an image of no bytes
  load_static_chunk = 108,        ///< Si468x_load_firmware_static: a chunk failed
  load_flash = 9,                 ///< Si468x_load_firmware_flash: the transfer failed
  boot = 10,                      ///< Si468x_boot: BOOT failed
  boot_state = 110,               ///< Si468x_boot: status 3 is not 0xC0
  chip_status = 11,               ///< Si468x_chip_info::get_status: the transfer failed
  sys_state = 12,                 ///< Si468x_chip_info::get_sys_state: GET_SYS_STATE failed
  func_info = 13,                 ///< Si468x_chip_info::get_func_info: GET_FUNC_INFO failed
  rd_reply = 14,                  ///< Si468x_rd_reply: the status read failed
  rd_reply_status = 114,          ///< Si468x_rd_reply: the status shows an error
  get_property = 17,              ///< Si468x_get_property: GET_PROPERTY failed
  set_property = 18,              ///< Si468x_set_property: SET_PROPERTY failed
  set_property_read_back = 118,   ///< Si468x_set_property: GET_PROPERTY failed
  set_property_differs = 218,     ///< Si468x_set_property: another value reads back
  get_freq_list = 19,             ///< Si468x_DAB_get_freq_list: reading the count failed
  get_freq_list_entries = 119,    ///< Si468x_DAB_get_freq_list: reading the list failed
  set_freq_list = 20,             ///< Si468x_DAB_set_freq_list: DAB_SET_FREQ_LIST failed
  part_info = 21,                 ///< Si468x_chip_info::get_part_info: GET_PART_INFO failed
  dab_tune = 21,                  ///< Si468x_DAB_tune_freq: DAB_TUNE_FREQ failed
  dab_tune_timeout = 121,         ///< Si468x_DAB_tune_freq: no seek/tune complete
  digrad_status = 22,             ///< Si468x_DAB_digrad_status: DAB_DIGRAD_STATUS failed
  event_status = 24,              ///< Si468x_DAB_event_status: DAB_GET_EVENT_STATUS failed
  service_list_size = 26,         ///< Si468x_digital_service_list: reading the size failed
  service_list_too_long = 126,    ///< Si468x_digital_service_list: more than 4089 bytes
  service_list = 226,             ///< Si468x_digital_service_list: reading the list failed
  service_list_too_short = 326,   ///< Si468x_digital_service_list: fewer than 6 bytes
  service_index = 27,             ///< Si468x_service_data: no service of this index
  service_walk = 127,             ///< Si468x_service_data: an entry before it runs past the list
  service_walk_components = 227,  ///< Si468x_service_data: the components of one before it do
  service_entry = 327,            ///< Si468x_service_data: the entry runs past the list
  service_components = 427,       ///< Si468x_service_data: its components run past the list
  component_index = 28,           ///< Si468x_DAB_component: no component of this index
  start_service = 32,             ///< Si468x_start_digital_service: it failed
  stop_service = 33,              ///< Si468x_stop_digital_service: it failed
  service_data_not_ready = 34,    ///< Si468x_digital_service_data: no clear to send
  ensemble_time = 35,             ///< Si468x_time::get_ensembletime: DAB_GET_TIME failed
  read_reply = 56,                ///< Si468x_read_reply: the read failed
  send_cmd_simple = 57,           ///< Si468x_send_cmd_simple: the write failed
  status_command_error = 58,      ///< Si468x_check_status_bits: command error
  status_data_or_arbiter_error = 158,  ///< Si468x_check_status_bits: data or arbiter error
  status_non_recoverable = 258,        ///< Si468x_check_status_bits: non-recoverable error
  send_cmd_write = 59,                 ///< Si468x_send_cmd: writing the command failed
  send_cmd_poll = 1059,                ///< Si468x_send_cmd: a status read failed; + 100 per wait
  no_cts = 160,                        ///< Si468x_send_cmd, HOST_LOAD: no clear to send in time
  cts_status = 260,                    ///< Si468x_send_cmd, HOST_LOAD: error status with CTS
  send_cmd_no_buffer = 360,            ///< Si468x_send_cmd: a reply is asked for, no buffer given
  send_cmd_reply = 460,                ///< Si468x_send_cmd: reading the reply failed
  send_cmd_reply_status = 560,         ///< Si468x_send_cmd: the reply's status shows an error
  seek_next = 60,                      ///< Si468x_tune_next_station: FM_SEEK_START failed
  seek_next_timeout = 160,             ///< Si468x_tune_next_station: no seek/tune complete
  fm_quality = 61,                     ///< Si468x_FM_rsq_status: FM_RSQ_STATUS failed
  rds_status = 62,                     ///< Si468x_FM_rds_status: FM_RDS_STATUS failed
  seek_previous = 63,                  ///< Si468x_tune_previous_station: FM_SEEK_START failed
  seek_previous_timeout = 163,         ///< Si468x_tune_previous_station: no seek/tune complete
  fm_tune = 66,                        ///< Si468x_FM_tune_freq: FM_TUNE_FREQ failed
  fm_tune_timeout = 166,               ///< Si468x_FM_tune_freq: no seek/tune complete
  tune_save = 65,                      ///< Si468x_DAB_tune_freq_save: the tune failed
  tune_save_status = 165,              ///< Si468x_DAB_tune_freq_save: the status read failed
  tune_save_events = 265,              ///< Si468x_DAB_tune_freq_save: an event read failed
  tune_save_no_list = 365,             ///< Si468x_DAB_tune_freq_save: no stable service list
};

/// The code of an operation that counts its steps: 100 more for each.
constexpr Error numbered(Error first, std::uint32_t step) {
  return static_cast<Error>(static_cast<std::uint32_t>(first) + 100 * step);
}

/// Store the code of a failure and hand its result through, for `return failed(...)`.
std::int16_t failed(Error code, std::int16_t result);

}  // namespace si468x
