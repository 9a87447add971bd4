// SPDX-License-Identifier: GPL-3.0-or-later
//
// FM with the FM-HD firmware: tuning to a frequency, seeking to the next or previous station, and
// the quality of the received signal. Command `fm_frequency`; the run calls the seeks for `next`
// and `previous` itself.
#pragma once

#include <cstdint>

/// Tune to `khz`, in steps of 10 kHz (a remainder is dropped; no band limit is checked), and wait
/// for seek/tune complete (see wait_for_seek_tune: its results, code 166), or the protocol's
/// negative result with code 66.
std::int16_t Si468x_FM_tune_freq(unsigned int khz);

/// Seek upwards or downwards to a receivable station and wait for it (code 160 upwards, 163
/// downwards), or the protocol's negative result with code 60 or 63.
std::int16_t Si468x_tune_next_station();
std::int16_t Si468x_tune_previous_station();

/// Quality of the signal that is received. Flags are 0 or 1.
struct Si468x_FM_rsq_status {
  std::uint8_t snrhINT = 0;
  std::uint8_t snrlINT = 0;
  std::uint8_t rssihINT = 0;
  std::uint8_t rssilINT = 0;
  std::uint8_t bandLimit = 0;  ///< a seek hit the limit of the band or wrapped
  std::uint8_t hdDetected = 0;
  std::uint8_t filteredHdDetected = 0;
  std::uint8_t afcRail = 0;
  std::uint8_t valid = 0;       ///< a station is there
  std::uint32_t freq = 0;       ///< kHz
  std::uint8_t freqOffset = 0;  ///< as an unsigned byte
  std::uint8_t rssi = 0;        ///< dBuV, as an unsigned byte
  std::uint8_t snr = 0;         ///< dB, as an unsigned byte
  std::uint8_t multipath = 0;
  std::uint16_t readAntCap = 0;
  std::uint8_t hdLevel = 0;
  std::uint8_t filteredHdLevel = 0;

  /// Ask the chip and fill every field. 0, or the protocol's negative result with code 61; the
  /// record then keeps its contents.
  std::int16_t get_status();
  /// Print the record as a text table, with an empty line after it.
  std::int16_t print_data();
};

/// Command `fm_frequency`: tune, with a message. 0, or -1 when the tune failed.
std::int16_t tune_fm_freq(unsigned int khz);
