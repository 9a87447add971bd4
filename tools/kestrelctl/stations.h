// SPDX-License-Identifier: GPL-3.0-or-later
//
// The stations of scans: each service once, with what kestrel needs to play it; found by name, and
// shown as a table, as JSON, CSV or a playlist.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kestrelctl/scan_file.h"

namespace kestrelctl {

struct Station {
  std::string name;
  std::string block;  ///< empty: a frequency that is no block of band III
  std::uint32_t khz = 0;
  unsigned index = 0;
  std::uint32_t service_id = 0;
  std::uint32_t component_id = 0;  ///< 0: it has none
  std::string_view kind;
  std::string_view programme_type;
  int rssi_dbuv = 0;
  int snr_db = 0;

  /// What keeps kestrel from playing it; empty if nothing does.
  [[nodiscard]] std::string_view obstacle() const;
};

Station make_station(const Block& block, const Service& service);
/// Each service of the scans, the oldest of which comes first: of a service that was found again on
/// the same frequency, what was found last.
std::vector<Station> list_stations(std::span<const Scan> scans);

/// What kestrel is to be given to play the station.
std::vector<std::string> playing_arguments(const Station& station);
/// "sudo kestrel -f 33 -e 17333 -c 12 -p"; empty if there is an obstacle.
std::string playing_command(const Station& station, const std::string& program = "kestrel");

/// The stations named `name`; if there are none, those whose names begin with it; if there are none
/// either, those whose names contain it. Without case. A service that several frequencies carry
/// under one name is there once: where it can be played, and with the strongest signal.
std::vector<Station> find_stations(const std::vector<Station>& stations, std::string_view name);

/// What `--sort` takes.
std::vector<std::string> sort_keys();
/// By one of the keys, and by name where two are alike.
void sort_stations(std::vector<Station>& stations, std::string_view key);

void write_table(std::ostream& out, const std::vector<Station>& stations);
void write_json(std::ostream& out, const std::vector<Station>& stations);
void write_csv(std::ostream& out, const std::vector<Station>& stations);
/// Commands instead of addresses; those that cannot be played are left out, with a comment.
void write_playlist(std::ostream& out, const std::vector<Station>& stations);

}  // namespace kestrelctl
