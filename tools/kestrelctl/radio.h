// SPDX-License-Identifier: GPL-3.0-or-later
//
// The radio as people use it: stations by name, presets, one volume that lasts, what is on. The
// console, the page and the home's dashboard are faces on it. Each call is one session at the
// board, so that all of them can be used at the same time; what lasts is in the store, not in here.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kestrelctl/receiver.h"
#include "kestrelctl/store.h"

namespace kestrelctl {

/// What the radio does at this moment. Fields that the firmware that runs does not have are empty.
struct Now {
  Reception reception;
  std::optional<Station> station;  ///< what plays, if it is known by name
  int volume = 0;
  bool is_silent = false;          ///< FM that is stopped: the volume is not the receiver's
  Label_state text;                ///< what the station says; of FM the same as in `rds`
  std::vector<Label_state> heard;  ///< what the text became since the look before, in its order
  Rds_state rds;                   ///< FM
  std::string broadcast_time;      ///< as transmitted, in the form of ISO 8601
};

/// `now` once for each text that was heard, in their order; once if none was.
std::vector<Now> split_by_text(const Now& now);

/// What is known of a station that is kept in a preset: what the scans say, else what was kept.
Station station_of(const Store& store, const Station_reference& wanted);

class Radio {
 public:
  /// `store` is the caller's and outlives the radio.
  explicit Radio(Store& store) : store_(store) {}

  /// Boot what is needed, tune and start the station at the stored volume, and remember it. How it
  /// is received.
  Reception play(const Station& station) { return play(station, store_.scans()); }
  /// The same for a station of other scans than the store's.
  Reception play(const Station& station, std::span<const Scan> scans);
  /// The preset after (`step` 1) or before (-1) what was played last, round and round; without
  /// presets, the station of the list.
  [[nodiscard]] Station neighbour(int step) const;
  /// Set the volume, 0 to 63, and remember it; a receiver that is off gets it when it boots.
  void set_volume(int volume);
  /// The volume that was set last, also for a receiver that is off.
  [[nodiscard]] int volume() const;
  /// End the sound: a DAB service is stopped, FM, which plays as long as it is tuned, goes silent.
  /// The receiver stays on.
  void stop();
  /// Hold the receiver in reset.
  void off();
  /// Look at the receiver, and take what the station has said since the look before.
  Now look();

 private:
  std::optional<Station> playing_station(const Reception& reception);

  Store& store_;
  // What was heard of the station so far; of another one it is of no use.
  std::uint32_t heard_khz_ = 0;
  std::optional<Station_reference> heard_last_;
  std::optional<Station> known_;                 ///< of `known_last_`, or found in the scans
  std::optional<Station_reference> known_last_;  ///< what was played last, when it was looked up
  std::pair<std::uint32_t, std::uint32_t> unknown_;  ///< kHz and service that no scan has
  Service_text text_;
  Station_rds rds_;
};

/// "Seegrund Pop, 12C, 62 dBuV, SNR 19", as people read it.
std::string describe(const Station& station, const Reception& reception);

}  // namespace kestrelctl
