// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/chip_info.h"

#include <array>
#include <cstdio>

#include "si468x/bus.h"
#include "si468x/protocol.h"
#include "si468x/record.h"

using namespace si468x;

namespace {

using Chip = Si468x_chip_info;

constexpr std::array status_fields{
    text_field<&Chip::clear_to_send>(bit(1, 7), "Clear to send:"),
    text_field<&Chip::command_error>(bit(1, 6), "Command error:"),
    text_field<&Chip::dig_radio_link_change_int>(bit(1, 5), "Digital radio link change interrupt:"),
    text_field<&Chip::data_component_int>(bit(1, 4), "Data component interrupt:"),
    text_field<&Chip::seek_tune_complete>(bit(1, 0), "Seek/Tune complete:"),
    text_field<&Chip::dig_radio_event_change_int>(bit(2, 5),
                                                  "Digital radio event change interrupt:"),
    text_field<&Chip::powerup_state>(bits(4, 7, 6), "Powerup state:"),
    text_field<&Chip::dsp_frame_overrun>(bit(4, 4), "DSP frame overrun:"),
    text_field<&Chip::read_reply_data_dropped>(bit(4, 3), "Data dropped during read reply:"),
    text_field<&Chip::command_write_data_dropped>(bit(4, 2), "Dropped data during command write:"),
    text_field<&Chip::arbiter_error>(bit(4, 1), "Arbiter error:"),
    text_field<&Chip::non_recoverable_error>(bit(4, 0), "Non-recoverable error:"),
};
static_assert(fits(status_fields, status_read_bytes));

constexpr std::array part_fields{
    text_field<&Chip::chip_mask_revision>(u8(5), "Chip Mask Revision:"),
    text_field<&Chip::rom_id>(u8(6), "ROM ID:"),
    text_field<&Chip::part_number>(u16(9), "Part Number:"),
};
constexpr std::size_t part_reply_bytes = 24;
static_assert(fits(part_fields, part_reply_bytes));

constexpr std::array system_fields{text_field<&Chip::firmware_image>(u8(5))};
constexpr std::size_t system_reply_bytes = 7;
static_assert(fits(system_fields, system_reply_bytes));

constexpr std::array function_fields{
    text_field<&Chip::revision_major>(u8(5)),
    text_field<&Chip::revision_minor>(u8(6)),
    text_field<&Chip::revision_build>(u8(7)),
    text_field<&Chip::no_svn_info>(bit(8, 7), "No SVN info:"),
    text_field<&Chip::mixed_revisions>(bit(8, 1), "Mixed revisions:"),
    text_field<&Chip::local_modifications>(bit(8, 0), "Local modifications:"),
};
constexpr std::array svn_fields{
    text_field<&Chip::build_location>(bits(8, 5, 4), "Build location:"),
    text_field<&Chip::svn_id>(u32(9), "SVN ID:"),
};
constexpr std::size_t function_reply_bytes = 13;
static_assert(fits(function_fields, function_reply_bytes));
static_assert(fits(svn_fields, function_reply_bytes));

constexpr std::array image_names{"Bootloader", "FMHD", "DAB",        "TDMB or data only DAB",
                                 "FMHD Demod", "AMHD", "AMHD Demod", "DAB Demod"};

const char* image_name(std::uint8_t image) {
  return image < image_names.size() ? image_names[image] : "unknown";
}

}  // namespace

std::int16_t Si468x_chip_info::get_status() {
  std::array<std::uint8_t, status_read_bytes> status{};
  if (Si468x_SPI_RW_data(status.data(), status_read_bytes) != 0) {
    return failed(Error::chip_status, result::transfer_failed);
  }
  decode(status_fields, status.data(), *this);
  return result::ok;
}

std::int16_t Si468x_chip_info::get_part_info() {
  return read_record<part_reply_bytes>(command_with(opcode::get_part_info, 0x00), part_fields,
                                       *this, Error::part_info);
}

std::int16_t Si468x_chip_info::get_sys_state() {
  return read_record<system_reply_bytes>(command_with(opcode::get_sys_state, 0x00), system_fields,
                                         *this, Error::sys_state);
}

std::int16_t Si468x_chip_info::get_func_info() {
  std::array<std::uint8_t, function_reply_bytes> reply{};
  const auto outcome = send_command(command_with(opcode::get_func_info, 0x00), reply);
  if (outcome < 0) return failed(Error::func_info, outcome);
  decode(function_fields, reply.data(), *this);
  if (no_svn_info == 0) decode(svn_fields, reply.data(), *this);
  return result::ok;
}

std::int16_t Si468x_chip_info::print_data() {
  std::puts("Chip info ---------------------------- ");
  print_fields(status_fields, *this);
  print_fields(part_fields, *this);
  print_line("Firmware image running the sysstate CMD:", image_name(firmware_image));
  std::printf("%-*s%u.%u.%u\n", label_columns, "Revision number:", revision_major, revision_minor,
              revision_build);
  print_fields(function_fields, *this);
  print_fields(svn_fields, *this);
  return result::ok;
}

int print_chip_info() {
  Si468x_chip_info info;
  // What could not be read is shown as zeros, and the next part is asked for all the same.
  (void)info.get_status();
  (void)info.get_part_info();
  (void)info.get_sys_state();
  (void)info.get_func_info();
  (void)info.print_data();
  return 0;
}
