// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/stations.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "kestrelctl/text.h"

namespace kestrelctl {

bool Station::is_playable() const { return index != 0 && service_id != 0 && component_id != 0; }

Station make_station(const Block& block, const Service& service) {
  const auto* component = service.main_component();
  return {.name = service.name,
          .block = block.name(),
          .khz = block.khz,
          .index = block.index,
          .service_id = service.id,
          .component_id = component == nullptr ? 0 : component->id,
          .kind = service.kind(),
          .programme_type = programme_type_name(service.programme_type),
          .rssi_dbuv = block.rssi_dbuv,
          .snr_db = block.snr_db};
}

std::vector<Station> list_stations(const std::vector<Scan>& scans) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, Station> found;
  for (const auto& scan : scans) {
    for (const auto& block : scan.blocks) {
      for (const auto& service : block.services) {
        found.insert_or_assign({block.khz, service.id}, make_station(block, service));
      }
    }
  }
  std::vector<Station> stations;
  stations.reserve(found.size());
  for (auto& [place, station] : found) stations.push_back(std::move(station));
  return stations;
}

std::vector<std::string> playing_arguments(const Station& station) {
  return {"-f", std::to_string(station.index),        "-e", std::to_string(station.service_id),
          "-c", std::to_string(station.component_id), "-p"};
}

std::string playing_command(const Station& station) {
  std::string command = "sudo kestrel";
  for (const auto& argument : playing_arguments(station)) command += ' ' + argument;
  return command;
}

std::vector<Station> find_stations(const std::vector<Station>& stations, std::string_view name) {
  enum Closeness { no, contains, begins, equals };
  const auto wanted = fold_case(make_harmless(name));
  const auto closeness = [&wanted](const Station& station) {
    const auto folded = fold_case(station.name);
    if (folded == wanted) return equals;
    if (folded.starts_with(wanted)) return begins;
    return folded.find(wanted) == std::string::npos ? no : contains;
  };
  auto closest = contains;
  for (const auto& station : stations) closest = std::max(closest, closeness(station));
  std::vector<Station> found;
  for (const auto& station : stations) {
    if (closeness(station) != closest) continue;
    const auto twin = std::ranges::find(found, station.service_id, &Station::service_id);
    if (twin == found.end()) {
      found.push_back(station);
    } else if (std::pair(station.is_playable(), station.rssi_dbuv) >
               std::pair(twin->is_playable(), twin->rssi_dbuv)) {
      *twin = station;
    }
  }
  return found;
}

void sort_stations(std::vector<Station>& stations, std::string_view key) {
  const auto rank = [key](const Station& station) {
    std::int64_t number = 0;
    std::string_view word;
    if (key == "block") number = station.khz;
    if (key == "signal") number = -std::int64_t{station.rssi_dbuv};
    if (key == "id") number = station.service_id;
    if (key == "kind") word = station.kind;
    if (key == "type") word = station.programme_type;
    return std::tuple(number, word, fold_case(station.name), station.khz, station.service_id);
  };
  std::ranges::sort(stations, {}, rank);
}

}  // namespace kestrelctl
