// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/dab_status.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <utility>

#include "si468x/record.h"

using namespace si468x;

namespace {

using Digrad = Si468x_DAB_digrad_status;
using Events = Si468x_DAB_event_status;

constexpr std::array digrad_fields{
    field<&Digrad::hardmuteINT>(bit(5, 4), "hardmuteINT", "Audio was muted:"),
    field<&Digrad::FICerrINT>(bit(5, 3), "FICerrINT", "FIC errors encountered:"),
    field<&Digrad::acqINT>(bit(5, 2), "acqINT", "Ensemble acquisition state changed:"),
    field<&Digrad::rssihINT>(bit(5, 1), "rssihINT", "above RSSI thresh:"),
    field<&Digrad::rssilINT>(bit(5, 0), "rssilINT", "below RSSI thresh:"),
    field<&Digrad::hardmute>(bit(6, 4), "hardmute", "hardmute:"),
    field<&Digrad::FICerr>(bit(6, 3), "FICerr", "FIC errors:"),
    field<&Digrad::acq>(bit(6, 2), "acq", "Ensemble acquired:"),
    field<&Digrad::valid>(bit(6, 0), "valid", "RSSI valid:"),
    field<&Digrad::rssi>(u8(7), "rssi", "RSSI:"),
    field<&Digrad::snr>(u8(8), "snr", "SNR:"),
    field<&Digrad::FIC_quality>(u8(9), "FIC_quality", "FIC quality:"),
    field<&Digrad::cnr>(u8(10), "cnr", "CNR:"),
    field<&Digrad::FIB_error_count>(u16(11), "FIB_error_count", "FIB error count:"),
    field<&Digrad::tune_freq>(u32(13), "tune_freq", "Tune Freq.:"),
    field<&Digrad::tune_index>(u8(17), "tune_index", "Tune index:"),
    field<&Digrad::fft_offset>(u8(18), "fft_offset", "FFT offset:"),
    field<&Digrad::readAntCap>(u16(19), "readAntCap", "Antenna tuning cap value:"),
    field<&Digrad::cu_level>(u16(21), "cu_level", "CU level:"),
    field<&Digrad::fast_dect>(u8(23), "fast_dect", "Metric for DAB fast detect:"),
};
constexpr std::size_t digrad_reply_bytes = 24;
static_assert(fits(digrad_fields, digrad_reply_bytes));

// The text report names the lower threshold first, reply and JSON the higher one.
constexpr auto digrad_report = [] {
  auto rows = digrad_fields;
  std::swap(rows[3], rows[4]);
  return rows;
}();

constexpr std::array event_fields{
    text_field<&Events::reconfigINT>(bit(5, 7), "Ensemble reconfig event:"),
    text_field<&Events::reconfigWarningINT>(bit(5, 6), "Ensemble reconfig warning:"),
    text_field<&Events::announcementINT>(bit(5, 3), "New announcement info available"),
    text_field<&Events::freqInfoINT>(bit(5, 1), "New freq. info available:"),
    text_field<&Events::serviceListINT>(bit(5, 0), "New service list available:"),
    text_field<&Events::freqInfoAvailable>(bit(6, 1), "Freq. Info available:"),
    text_field<&Events::serviceListAvailable>(bit(6, 0), "Service list available:"),
    text_field<&Events::serviceListVersion>(u16(7), "Service list version:"),
};
constexpr std::size_t event_reply_bytes = 9;
static_assert(fits(event_fields, event_reply_bytes));
constexpr std::uint8_t acknowledge_events = 0x01;

}  // namespace

std::int16_t Si468x_DAB_digrad_status::get_new_status() {
  return read_record<digrad_reply_bytes>(command_with(opcode::dab_digrad_status, 0x00),
                                         digrad_fields, *this, Error::digrad_status);
}

std::int16_t Si468x_DAB_digrad_status::print_data() {
  std::puts("Digrad status ------------------------ ");
  print_fields(digrad_report, *this);
  return result::ok;
}

int Si468x_DAB_digrad_status::json_print_data(std::stringstream& out) {
  open_object(out, "DigradStatus");
  write_members(out, digrad_fields, *this, Next::end);
  out << '}';
  return 0;
}

std::int16_t Si468x_DAB_event_status::get_new_status() {
  return read_record<event_reply_bytes>(
      command_with(opcode::dab_get_event_status, acknowledge_events), event_fields, *this,
      Error::event_status);
}

std::int16_t Si468x_DAB_event_status::print_data() {
  std::puts("Event status ------------------------- ");
  print_fields(event_fields, *this);
  return result::ok;
}

int print_digrad_status() {
  Si468x_DAB_digrad_status status;
  (void)status.get_new_status();  // a failed read is shown as zeros
  (void)status.print_data();
  return 0;
}

int print_digrad_status_json() {
  std::stringstream out;
  Si468x_DAB_digrad_status status;
  (void)status.get_new_status();  // a failed read is shown as zeros
  (void)status.json_print_data(out);
  std::cout << out.view();
  return 0;
}

int print_event_status() {
  Si468x_DAB_event_status status;
  (void)status.get_new_status();  // a failed read is shown as zeros
  (void)status.print_data();
  return 0;
}
