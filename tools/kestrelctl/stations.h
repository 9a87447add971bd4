// SPDX-License-Identifier: GPL-3.0-or-later
//
// The stations of scans, DAB and FM: each once, with what the receiver is to be told to play it;
// found by name, and shown as a table, as JSON or as CSV. No I/O but the caller's streams.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kestrelctl/scan_file.h"

namespace kestrelctl {

struct Station {
  std::string name;  ///< of an FM station without a name its frequency, "98.50 MHz"
  bool is_fm = false;
  std::uint32_t khz = 0;
  unsigned index = 0;              ///< in the frequency list of the scan; FM: 0
  std::uint32_t service_id = 0;    ///< FM: 0
  std::uint32_t component_id = 0;  ///< FM: 0
  std::uint16_t pi = 0;            ///< FM only; 0: not received
  std::string_view kind;           ///< "DAB", "DAB+", "data" or "FM"
  std::string_view programme_type;
  int rssi_dbuv = 0;
  int snr_db = 0;
  bool has_audio = true;  ///< has an audio component
  bool is_scrambled = false;

  /// What keeps it from being played: "data service", "no audio" or "scrambled"; empty if nothing
  /// does.
  [[nodiscard]] std::string_view obstacle() const;
  /// Where it is: "12C", or what describe_frequency() says if it is not on a block of band III.
  [[nodiscard]] std::string place() const;
};

/// "12C, 227.360 MHz", "227.361 MHz" or, in the FM band, "98.50 MHz".
std::string describe_frequency(std::uint32_t khz);

Station make_station(const Block& block, const Service& service);
/// Each station of the scans, the oldest of which comes first: of one that was found again on the
/// same frequency, what was found last.
std::vector<Station> list_stations(std::span<const Scan> scans);
/// The frequencies in kHz, index by index, of the list with which the newest of the scans found a
/// DAB station; empty if none did. At most 48.
std::vector<std::uint32_t> frequency_list_of(const Station& station, std::span<const Scan> scans);

/// What is kept of a station, for example in a preset.
struct Station_reference {
  std::string name;
  bool is_fm = false;
  std::uint32_t khz = 0;
  std::uint32_t service_id = 0;
  std::uint32_t component_id = 0;
};
/// The same station, under whatever name?
bool operator==(const Station_reference& a, const Station_reference& b);
Station_reference refer_to(const Station& station);
/// The station that is meant; null if it is not there.
const Station* find_station(std::span<const Station> stations, const Station_reference& wanted);

/// "sudo kestrel -f 33 -e 17333 -c 12 -p", "sudo kestrel -F 98500"; empty for what kestrel's
/// command line cannot play: index 0, and ids that are 0.
std::string kestrel_command(const Station& station);

struct Station_filter {
  std::string block = {};                        ///< "12C", without case; empty: any
  std::optional<std::uint32_t> service_id = {};  ///< nothing: any
};
/// The stations named `name`; if there are none, those whose names begin with it; if there are none
/// either, those that contain it, and at last those that contain each of its words. Without case
/// and accents. Data services count only if nothing else has the name, and what cannot be played
/// only if nothing as close can. A service, or an FM programme by its PI, that several frequencies
/// carry under one name is there once, with the strongest signal. In natural order.
std::vector<Station> find_stations(std::span<const Station> stations, std::string_view name,
                                   const Station_filter& filter = {});

/// At most three of `names` that `typed` may have been meant for, the nearest first: a part of the
/// name, without case and accents, is at most a third of its characters away.
std::vector<std::string> find_nearest(std::span<const std::string> names, std::string_view typed);
std::vector<std::string> nearest_names(std::span<const Station> stations, std::string_view typed);

/// What `--sort` takes.
std::vector<std::string> sort_keys();
/// By one of the keys, and by name, in natural order ("Radio 2" before "Radio 10"), where two are
/// alike.
void sort_stations(std::vector<Station>& stations, std::string_view key);

/// At most 80 columns wide without `with_ids`; says why a station cannot be played.
void write_table(std::ostream& out, const std::vector<Station>& stations, bool with_ids = false);
void write_json(std::ostream& out, const std::vector<Station>& stations);
void write_csv(std::ostream& out, const std::vector<Station>& stations);

}  // namespace kestrelctl
