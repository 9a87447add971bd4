// SPDX-License-Identifier: GPL-3.0-or-later
//
// State of the DAB receiver after a tune: reception figures and acquisition, and the ensemble's
// pending events. Tuning and the scan judge by these records; `digrad_status` and `event_status`
// print them.
#pragma once

#include <cstdint>
#include <sstream>

/// Reception figures. Flags are 0 or 1; the names ending in INT are events since the last
/// acknowledge.
struct Si468x_DAB_digrad_status {
  std::uint8_t hardmuteINT = 0;  ///< audio was muted
  std::uint8_t FICerrINT = 0;    ///< FIC errors encountered
  std::uint8_t acqINT = 0;       ///< acquisition state changed
  std::uint8_t rssihINT = 0;     ///< RSSI above the high threshold
  std::uint8_t rssilINT = 0;     ///< RSSI below the low threshold
  std::uint8_t hardmute = 0;
  std::uint8_t FICerr = 0;
  std::uint8_t acq = 0;          ///< an ensemble is acquired
  std::uint8_t valid = 0;        ///< the tuned frequency has a valid signal
  std::uint8_t rssi = 0;         ///< dBuV, as an unsigned byte
  std::uint8_t snr = 0;          ///< dB, as an unsigned byte
  std::uint8_t FIC_quality = 0;  ///< 0 to 100
  std::uint8_t cnr = 0;          ///< dB
  std::uint16_t FIB_error_count = 0;
  std::int32_t tune_freq = 0;  ///< kHz
  std::uint8_t tune_index = 0;
  std::uint8_t fft_offset = 0;  ///< as an unsigned byte
  std::uint16_t readAntCap = 0;
  std::uint16_t cu_level = 0;
  std::uint8_t fast_dect = 0;  ///< metric of the fast DAB detection

  /// Ask the chip and fill every field. 0, or the protocol's negative result with code 22; the
  /// record then keeps its contents.
  std::int16_t get_new_status();
  /// Print the record as a text table.
  std::int16_t print_data();
  /// Append the member "DigradStatus" to `out`, without enclosing braces or a last newline. Always
  /// 0.
  int json_print_data(std::stringstream& out);
};

/// Events of the tuned ensemble; reading them acknowledges them. Flags are 0 or 1.
struct Si468x_DAB_event_status {
  std::uint8_t reconfigINT = 0;
  std::uint8_t reconfigWarningINT = 0;
  std::uint8_t announcementINT = 0;
  std::uint8_t freqInfoINT = 0;
  std::uint8_t serviceListINT = 0;  ///< a new service list has come
  std::uint8_t freqInfoAvailable = 0;
  std::uint8_t serviceListAvailable = 0;
  std::uint16_t serviceListVersion = 0;

  /// Ask the chip, which clears the events it reports, and fill every field. 0, or the protocol's
  /// negative result with code 24; the record then keeps its contents.
  std::int16_t get_new_status();
  /// Print the record as a text table.
  std::int16_t print_data();
};

// Front-end commands: each prints its record, zeros when it could not be read, and returns 0.

int print_digrad_status();
int print_digrad_status_json();
int print_event_status();
