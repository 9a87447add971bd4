// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/fm_tuning.h"

#include <array>
#include <cstdio>

#include "si468x/bus.h"
#include "si468x/record.h"
#include "si468x/seek_tune.h"

using namespace si468x;

namespace {

using Quality = Si468x_FM_rsq_status;

// The chip counts FM frequencies in steps of 10 kHz.
constexpr unsigned khz_per_step = 10;

constexpr std::array quality_fields{
    text_field<&Quality::snrhINT>(bit(5, 3), "Signal Noise Ratio above high threshold:"),
    text_field<&Quality::snrlINT>(bit(5, 2), "Signal Noise Ratio below low threshold:"),
    text_field<&Quality::rssihINT>(bit(5, 1), "RSSI above high threshold:"),
    text_field<&Quality::rssilINT>(bit(5, 0), "RSSI below low threshold:"),
    text_field<&Quality::bandLimit>(bit(6, 7), "Seek band limit was hit:"),
    text_field<&Quality::hdDetected>(bit(6, 5), "HD was detected (HD level above threshold):"),
    text_field<&Quality::filteredHdDetected>(bit(6, 4), "Filtered HD was detected:"),
    text_field<&Quality::afcRail>(bit(6, 1), "AFC rail indicator:"),
    text_field<&Quality::valid>(bit(6, 0), "Valid channel:"),
    text_field<&Quality::freq>(u16(7), "Currently tuned frequency:"),
    text_field<&Quality::freqOffset>(u8(9), "Frequency offset:"),
    text_field<&Quality::rssi>(u8(10), "RSSI:"),
    text_field<&Quality::snr>(u8(11), "Signal Noise Ratio:"),
    text_field<&Quality::multipath>(u8(12), "Multipath indicator:"),
    text_field<&Quality::readAntCap>(u16(13), "Antenna tuning capacitor value:"),
    text_field<&Quality::hdLevel>(u8(16), "HD availability confidence factor (level):"),
    text_field<&Quality::filteredHdLevel>(u8(17), "Filtered HD level:"),
};
constexpr std::size_t quality_reply_bytes = 23;
static_assert(fits(quality_fields, quality_reply_bytes));
constexpr std::uint8_t quality_argument = 0x09;

// Seek flags: bit 0 in both directions, bit 1 downwards. The template is the seek upwards.
constexpr std::size_t seek_flags_byte = 2;
constexpr std::uint8_t seek_down = 0x02;
constexpr std::array<std::uint8_t, 6> seek_template{
    opcode::fm_seek_start, 0x00, 0x01, 0x00, 0x00, 0x00};

/// Send a command that starts a tune or a seek, and wait until it is complete.
template <std::size_t Command_bytes>
std::int16_t tune_with(const std::array<std::uint8_t, Command_bytes>& command, Error command_code,
                       Error timeout_code) {
  if (const auto outcome = send_command(command); outcome < 0) {
    return failed(command_code, outcome);
  }
  return wait_for_seek_tune(timeout_code);
}

}  // namespace

std::int16_t Si468x_FM_tune_freq(unsigned int khz) {
  const auto steps = khz / khz_per_step;
  return tune_with(std::array<std::uint8_t, 7>{opcode::fm_tune_freq, 0x00, octet(steps, 0),
                                               octet(steps, 1), 0x00, 0x00, 0x00},
                   Error::fm_tune, Error::fm_tune_timeout);
}

std::int16_t Si468x_tune_next_station() {
  return tune_with(seek_template, Error::seek_next, Error::seek_next_timeout);
}

std::int16_t Si468x_tune_previous_station() {
  auto command = seek_template;
  command[seek_flags_byte] |= seek_down;
  return tune_with(command, Error::seek_previous, Error::seek_previous_timeout);
}

std::int16_t Si468x_FM_rsq_status::get_status() {
  const auto outcome =
      read_record<quality_reply_bytes>(command_with(opcode::fm_rsq_status, quality_argument),
                                       quality_fields, *this, Error::fm_quality);
  if (outcome == result::ok) freq *= khz_per_step;
  return outcome;
}

std::int16_t Si468x_FM_rsq_status::print_data() {
  std::puts("FM RSQ status  ");
  print_fields(quality_fields, *this);
  std::putchar('\n');
  return result::ok;
}

std::int16_t tune_fm_freq(unsigned int khz) {
  constexpr unsigned after_tune_ms = 500;
  if (Si468x_FM_tune_freq(khz) != 0) {
    std::puts("Could not tune to frequency\n");
    return -1;
  }
  Si468x_delay_ms(after_tune_ms);
  std::puts("Tuned.\n");
  return 0;
}
