// SPDX-License-Identifier: GPL-3.0-or-later
//
// The full scan: every index of the chip's DAB frequency list is visited, what was found there is
// kept, the user is asked where the antenna is, and all of it goes into one JSON file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "si468x/dab_status.h"
#include "si468x/dab_tuning.h"
#include "si468x/ensemble_time.h"
#include "si468x/service_list.h"

/// Slot i of each array belongs to index i of the chip's frequency list. A new list is all zero and
/// empty.
class Ensemble_list {
 public:
  static constexpr std::size_t slots = dab_freq_list_limit;

  Ensemble_list();
  virtual ~Ensemble_list();
  // The slots' lists refer to this object's buffers.
  Ensemble_list(const Ensemble_list&) = delete;
  Ensemble_list& operator=(const Ensemble_list&) = delete;
  Ensemble_list(Ensemble_list&&) = delete;
  Ensemble_list& operator=(Ensemble_list&&) = delete;

  /// Visit every index, with progress on standard output as it happens, then ask for the location.
  /// Always 0.
  int rescan();
  /// Tune to `index` and keep what is there; `status` is filled as Si468x_DAB_tune_freq_save does.
  /// `tuned` is called when the tune has been judged, before the rest is read. The result of
  /// Si468x_DAB_tune_freq_save: when it is negative, nothing was stored.
  std::int16_t visit(unsigned char index, Si468x_DAB_digrad_status& status,
                     const std::function<void()>& tuned);
  /// Store copies of what was found at `index`; the entries of `list` go into a buffer that the
  /// slot owns from then on. 0, or -6 for an index without a slot; nothing is stored then.
  int add_ensemble(unsigned short index, Si468x_digital_service_list& list,
                   Si468x_DAB_digrad_status& status, Si468x_time& time);
  /// Ask the location questions on standard output and take the answers from standard input, then
  /// compose `file_name`. An answer that is not there is empty. Always 0.
  int get_geo_location();
  /// Append the scan document to `out`: the location and an entry for each of
  /// `number_of_frequencies`. Always 0.
  int json_print_data(std::stringstream& out);
  /// Write the document into the file `file_name`, replacing one that is there. A file that cannot
  /// be written is passed over in silence. Always 0.
  int save_to_file();

  Si468x_digital_service_list service_list[slots];
  Si468x_DAB_digrad_status digrad_status[slots];
  Si468x_time ensemble_time[slots];
  std::uint8_t number_of_frequencies = 0;  ///< visited, at most `slots`
  // The scan location, as typed.
  std::string street;
  std::string street_no;
  std::string postal_code;
  std::string city;
  std::string country;
  std::string floor;
  std::string gps_latitude;
  std::string gps_longitude;
  std::string file_name;

 private:
  /// What `ServiceEntries` of a stored list refers to: `service_list_reply_bytes` bytes, allocated
  /// when the slot is first used.
  std::array<std::unique_ptr<std::uint8_t[]>, slots> entries_;
};

/// Command `full_scan`: scan and save. Always 0.
int dab_full_scan();
