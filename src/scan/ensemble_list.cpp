// SPDX-License-Identifier: GPL-3.0-or-later
#include "scan/ensemble_list.h"

#include <algorithm>
#include <iostream>

#include "si468x/error_codes.h"

Ensemble_list::Ensemble_list() = default;
Ensemble_list::~Ensemble_list() = default;

int Ensemble_list::rescan() {
  std::array<unsigned int, dab_freq_list_claim_limit> frequencies_khz{};
  unsigned char count = 0;
  // Without a list there is nothing to visit; without its entries the indices are visited all the
  // same.
  (void)Si468x_DAB_get_freq_list(frequencies_khz.data(), &count);
  // The chip may claim a longer list than it can hold; there are slots for a whole one.
  number_of_frequencies = std::min(count, dab_freq_list_limit);

  Si468x_DAB_digrad_status status;  // a failed tune leaves it, and the bar, as it was
  for (std::uint8_t i = 0; i < number_of_frequencies; ++i) {
    const auto report = [&] {
      std::cout << "Scanning frequency: " << frequencies_khz[i]
                << " kHz. Found signal with RSSI: " << std::string(status.rssi, '-') << '\n'
                << std::flush;
    };
    const auto found = visit(i, status, std::cref(report));
    if (found == 1) std::cout << "Found ensemble!\n" << std::flush;
  }
  return get_geo_location();
}

std::int16_t Ensemble_list::visit(unsigned char index, Si468x_DAB_digrad_status& status,
                                  const std::function<void()>& tuned) {
  const auto found = Si468x_DAB_tune_freq_save(index, status);
  tuned();
  if (found < 0) return found;
  std::array<unsigned char, service_list_reply_bytes> reply{};
  Si468x_digital_service_list list;
  Si468x_time time;
  if (found == 1) {
    // A failed read leaves its record empty.
    (void)list.get_new_list(reply.data());
    (void)time.get_ensembletime();
  }
  return add_ensemble(index, list, status, time) == 0 ? found : si468x::result::invalid;
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
