// SPDX-License-Identifier: GPL-3.0-or-later
#include "scan/ensemble_list.h"

#include <algorithm>
#include <iostream>

#include "si468x/error_codes.h"

int Ensemble_list::rescan() {
  std::array<unsigned int, 64> frequencies_khz{};
  unsigned char count = 0;
  Si468x_DAB_digrad_status status;
  Si468x_digital_service_list list;
  Si468x_time time;
  std::array<unsigned char, service_list_reply_bytes> reply{};

  // Without a list there is nothing to visit; without its entries the indices are visited all the
  // same.
  (void)Si468x_DAB_get_freq_list(frequencies_khz.data(), &count);
  // The chip may claim a longer list than it can hold; there are slots for a whole one.
  number_of_frequencies = std::min(count, dab_freq_list_limit);

  for (std::uint8_t i = 0; i < number_of_frequencies; ++i) {
    const auto found = Si468x_DAB_tune_freq_save(i, status);
    std::cout << "Scanning frequency: " << frequencies_khz[i]
              << " kHz. Found signal with RSSI: " << std::string(status.rssi, '-') << '\n'
              << std::flush;
    if (found < 0) continue;
    const bool has_ensemble = found == 1;
    if (!has_ensemble || list.get_new_list(reply.data()) != 0) list.clean();
    if (!has_ensemble || time.get_ensembletime() != 0) time.clean();
    if (has_ensemble) std::cout << "Found ensemble!\n" << std::flush;
    (void)add_ensemble(i, list, status, time);  // i has a slot
  }
  return get_geo_location();
}

int Ensemble_list::add_ensemble(unsigned short index, Si468x_digital_service_list& list,
                                Si468x_DAB_digrad_status& status, Si468x_time& time) {
  if (index >= slots) return si468x::result::invalid;
  auto& entries = entries_[index];
  if (!entries) entries = std::make_unique<std::uint8_t[]>(service_list_reply_bytes);
  const std::size_t size = list.ServiceEntries == nullptr ? 0 : list.ServiceEntriesSize;
  const auto kept = std::min(size, service_list_reply_bytes);
  std::copy_n(list.ServiceEntries, kept, entries.get());
  service_list[index] = list;
  service_list[index].ServiceEntriesSize = static_cast<std::uint16_t>(kept);
  service_list[index].ServiceEntries = entries.get();
  digrad_status[index] = status;
  ensemble_time[index] = time;
  return 0;
}

int dab_full_scan() {
  Ensemble_list ensembles;
  (void)ensembles.rescan();  // both always 0
  (void)ensembles.save_to_file();
  return 0;
}
