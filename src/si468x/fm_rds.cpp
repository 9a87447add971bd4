// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/fm_rds.h"

#include <array>
#include <cstdio>
#include <iterator>

#include "si468x/fm_tuning.h"
#include "si468x/properties.h"
#include "si468x/record.h"

using namespace si468x;

namespace {

using Rds = Si468x_FM_rds_status;

constexpr std::array programme_fields{
    text_field<&Rds::tp_changed>(bit(5, 4), "Traffic Program code changed:"),
    text_field<&Rds::pi_changed>(bit(5, 3), "Program Identification code changed:"),
    text_field<&Rds::sync_changed>(bit(5, 1), "RDS synchronization status changed:"),
    text_field<&Rds::fifo_full>(bit(5, 0), "RDS data received, FIFO full:"),
    text_field<&Rds::tp_pty_valid>(bit(6, 4), "Traffic Program and PTY valid:"),
    text_field<&Rds::pi_valid>(bit(6, 3), "Program Identification code valid:"),
    text_field<&Rds::synchronized>(bit(6, 1), "RDS synchronized:"),
    text_field<&Rds::fifo_overrun>(bit(6, 0), "RDS FIFO overrun, data lost:"),
    text_field<&Rds::tp>(bit(7, 5), "TP flag:"),
    text_field<&Rds::pty>(bits(7, 4, 0), "PTY code:"),
};
// After these comes the name of the programme type.
constexpr std::array group_fields{
    text_field<&Rds::pi>(u16(9), "Program Identification:"),
    text_field<&Rds::fifo_used>(u8(11), "Groups left in RDS FIFO:"),
    text_field<&Rds::ble_a>(bits(12, 7, 6), "Bit Errors in Block A:"),
    text_field<&Rds::ble_b>(bits(12, 5, 4), "Bit Errors in Block B:"),
    text_field<&Rds::ble_c>(bits(12, 3, 2), "Bit Errors in Block C:"),
    text_field<&Rds::ble_d>(bits(12, 1, 0), "Bit Errors in Block D:"),
    text_field<&Rds::block_a>(u16(13), "Block A"),
    text_field<&Rds::block_b>(u16(15), "Block B"),
    text_field<&Rds::block_c>(u16(17), "Block C"),
    text_field<&Rds::block_d>(u16(19), "Block D"),
};
constexpr std::size_t rds_reply_bytes = 21;
static_assert(fits(programme_fields, rds_reply_bytes) && fits(group_fields, rds_reply_bytes));

// RDS reception is off after a boot: the decoder is enabled and, with it, the de-emphasis set.
using Property = std::array<std::uint16_t, 2>;
constexpr std::array<Property, 2> decoder_settings{{{0x3C02, 0x0001}, {0x3900, 0x3900}}};

}  // namespace

const char* const pty_meaning_europe[32] = {
    "No programme type defined",
    "News",
    "Current affairs",
    "Information",
    "Sport",
    "Education",
    "Drama",
    "Culture",
    "Science",
    "Varied",
    "Popular Music (Pop)",
    "Rock Music",
    "Easy Listening",
    "Light Classical",
    "Serious Classical",
    "Other Music",
    "Weather",
    "Finance",
    "Children's Programmes",
    "Social Affairs",
    "Religion",
    "Phone-in",
    "Travel",
    "Leisure",
    "Jazz Music",
    "Country Music",
    "National Music",
    "Oldies Music",
    "Folk Music",
    "Documentary",
    "Alarm Test",
    "Alarm",
};

std::int16_t Si468x_FM_rds_status::get_status() {
  std::array<std::uint8_t, rds_reply_bytes> reply{};
  const auto outcome = send_command(command_with(opcode::fm_rds_status, 0x00), reply);
  if (outcome < 0) return failed(Error::rds_status, outcome);
  decode(programme_fields, reply.data(), *this);
  decode(group_fields, reply.data(), *this);
  return result::ok;
}

std::int16_t Si468x_FM_rds_status::print_data() {
  std::puts("FM RDS status  ");
  print_fields(programme_fields, *this);
  print_line("PTY Meaning (Europe):",
             pty < std::size(pty_meaning_europe) ? pty_meaning_europe[pty] : "unknown");
  print_fields(group_fields, *this);
  std::putchar('\n');
  return result::ok;
}

std::int16_t Si468x_FM_enable_rds() {
  for (auto setting : decoder_settings) {
    const auto outcome = Si468x_set_property(setting.data());
    if (outcome != 0) return outcome;
  }
  return result::ok;
}

std::int16_t get_rds_status() {
  if (const auto outcome = Si468x_FM_enable_rds(); outcome != 0) return outcome;
  Si468x_FM_rsq_status quality;
  (void)quality.get_status();  // a failed read is shown as zeros
  (void)quality.print_data();
  Si468x_FM_rds_status rds;
  (void)rds.get_status();  // a failed read is shown as zeros
  (void)rds.print_data();
  return 0;
}
