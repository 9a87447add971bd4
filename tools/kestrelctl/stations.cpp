// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/stations.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <utility>

#include "kestrelctl/text.h"

namespace kestrelctl {

std::string_view Station::obstacle() const {
  if (kind == "data") return "kestrel plays no data services";
  if (index == 0) return "kestrel's command line cannot tune index 0";
  if (component_id == 0) return "it has no component, or one with the id 0";
  if (service_id == 0) return "kestrel takes the service id 0 for none";
  return {};
}

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

std::vector<Station> list_stations(std::span<const Scan> scans) {
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

std::string playing_command(const Station& station, const std::string& program) {
  if (!station.obstacle().empty()) return "";
  std::string command = "sudo " + program;
  for (const auto& argument : playing_arguments(station)) command += ' ' + argument;
  return command;
}

std::vector<Station> find_stations(const std::vector<Station>& stations, std::string_view name) {
  enum Closeness { no, contains, begins, equals };
  const auto wanted = fold(make_harmless(name));
  const auto closeness = [&wanted](const std::string& folded) {
    if (folded == wanted) return equals;
    if (folded.starts_with(wanted)) return begins;
    return folded.find(wanted) == std::string::npos ? no : contains;
  };
  auto closest = contains;
  std::map<std::pair<std::string, std::uint32_t>, Station> found;
  for (const auto& station : stations) {
    auto folded = fold(station.name);
    const auto is = closeness(folded);
    if (is < closest) continue;
    if (is > closest) found.clear();
    closest = is;
    const auto rank = [](const Station& s) { return std::pair(s.obstacle().empty(), s.rssi_dbuv); };
    const auto [twin, is_new] = found.try_emplace({std::move(folded), station.service_id}, station);
    if (!is_new && rank(station) > rank(twin->second)) twin->second = station;
  }
  std::vector<Station> list;
  list.reserve(found.size());
  for (auto& [key, station] : found) list.push_back(std::move(station));
  return list;
}

namespace {

/// What the stations are sorted by: a number, then a word, then the name.
struct Sort_key {
  std::string_view name;
  std::int64_t (*number)(const Station&);
  std::string_view (*word)(const Station&);
};
constexpr auto no_number = [](const Station&) { return std::int64_t{0}; };
constexpr auto no_word = [](const Station&) { return std::string_view(); };
constexpr std::array keys{
    Sort_key{"name", no_number, no_word},
    Sort_key{"block", [](const Station& s) { return std::int64_t{s.khz}; }, no_word},
    Sort_key{"signal", [](const Station& s) { return -std::int64_t{s.rssi_dbuv}; }, no_word},
    Sort_key{"kind", no_number, [](const Station& s) { return s.kind; }},
    Sort_key{"type", no_number, [](const Station& s) { return s.programme_type; }},
    Sort_key{"id", [](const Station& s) { return std::int64_t{s.service_id}; }, no_word}};

}  // namespace

std::vector<std::string> sort_keys() {
  std::vector<std::string> names;
  names.reserve(keys.size());
  for (const auto& key : keys) names.emplace_back(key.name);
  return names;
}

void sort_stations(std::vector<Station>& stations, std::string_view key) {
  const auto* chosen = std::ranges::find(keys, key, &Sort_key::name);
  if (chosen == keys.end()) chosen = keys.begin();
  std::ranges::sort(stations, {}, [chosen](const Station& station) {
    return std::tuple(chosen->number(station), chosen->word(station), fold(station.name),
                      station.khz, station.service_id);
  });
}

}  // namespace kestrelctl
