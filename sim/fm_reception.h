// SPDX-License-Identifier: GPL-3.0-or-later
//
// FM reception at the tuned frequency, as the tuner's and the RDS decoder's
// commands both see it.
#pragma once

#include "sim/chip.h"

namespace sim {

/// The figures of the tuned frequency; noise where no station is. `is_valid`:
/// the tune has completed and RSSI and SNR reach the properties' thresholds.
struct Fm_reception {
  Fm_station station;
  bool is_valid = false;
  bool is_beside_station = false;  ///< a station is near enough to pull the tuner
};
[[nodiscard]] Fm_reception fm_reception(const Chip& chip);

}  // namespace sim
