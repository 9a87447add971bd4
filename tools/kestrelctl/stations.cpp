// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/stations.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <sstream>
#include <tuple>
#include <utility>

#include "kestrelctl/text.h"

namespace kestrelctl {

std::string_view Station::obstacle() const {
  if (kind == "data") return "data service";
  if (!has_audio) return "no audio";
  return is_scrambled ? "scrambled" : "";
}

std::string Station::place() const {
  const auto block = block_name(khz);
  return block.empty() ? describe_frequency(khz) : block;
}

std::string describe_frequency(std::uint32_t khz) {
  constexpr std::uint32_t highest_fm_khz = 108000;
  if (khz <= highest_fm_khz) return fmt::format("{:.2f} MHz", khz / 1000.0);
  const auto block = block_name(khz);
  return fmt::format("{}{}{:.3f} MHz", block, block.empty() ? "" : ", ", khz / 1000.0);
}

Station make_station(const Block& block, const Service& service) {
  const auto* component = service.main_component();
  const bool is_scrambled = component != nullptr && component->is_scrambled;
  return {.name = service.name,
          .khz = block.khz,
          .index = block.index,
          .service_id = service.id,
          .component_id = component == nullptr ? 0 : component->id,
          .kind = service.kind(),
          .programme_type = programme_type_name(service.programme_type),
          .rssi_dbuv = block.rssi_dbuv,
          .snr_db = block.snr_db,
          .has_audio = component != nullptr && component->transport == 0,
          .is_scrambled = is_scrambled || service.has_conditional_access};
}

namespace {

Station make_station(const Fm_station& heard) {
  Station station{.name = heard.ps,
                  .is_fm = true,
                  .khz = heard.khz,
                  .pi = heard.pi,
                  .kind = "FM",
                  .programme_type = programme_type_name(heard.programme_type, true),
                  .rssi_dbuv = heard.rssi_dbuv,
                  .snr_db = heard.snr_db};
  if (station.name.empty()) station.name = station.place();
  return station;
}

/// For comparing in natural order: each number has its count of digits before it.
std::string natural_key(std::string_view name) {
  const auto folded = fold(name);
  std::string key;
  for (std::string_view rest = folded; !rest.empty();) {
    const auto digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    const auto taken = std::max<std::size_t>(digits, 1);
    if (digits > 0) key += static_cast<char>('0' + std::min<std::size_t>(digits, 9));
    key += rest.substr(0, taken);
    rest.remove_prefix(taken);
  }
  return key;
}

/// The stations of a map, in its order.
template <class Map>
std::vector<Station> take_stations(Map& map) {
  std::vector<Station> stations;
  stations.reserve(map.size());
  for (auto& [key, station] : map) stations.push_back(std::move(station));
  return stations;
}

/// How close a name is to the wanted one, both folded.
enum Closeness { no, has_words, contains, begins, equals };
Closeness closeness_to(const std::string& wanted, const std::string& name) {
  if (name == wanted) return equals;
  if (name.starts_with(wanted)) return begins;
  if (name.find(wanted) != std::string::npos) return contains;
  std::istringstream words(wanted);
  std::string word;
  while (words >> word) {
    if (name.find(word) == std::string::npos) return no;
  }
  return has_words;
}

/// The fewest characters to put in, leave out or exchange in `typed` for a part of `name`.
std::size_t distance_to_part(std::u32string_view name, std::u32string_view typed) {
  std::vector<std::size_t> row(name.size() + 1);  // a part begins anywhere
  for (std::size_t i = 0; i < typed.size(); ++i) {
    auto diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < name.size(); ++j) {
      const auto exchanged = diagonal + (typed[i] == name[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({exchanged, diagonal + 1, row[j] + 1});
    }
  }
  return std::ranges::min(row);
}

using Sort_value = std::pair<std::int64_t, std::string_view>;
struct Sort_key {
  std::string_view name;
  Sort_value (*value)(const Station&);
};
constexpr std::array keys{
    Sort_key{"name", [](const Station&) { return Sort_value(); }},
    Sort_key{"block", [](const Station& s) { return Sort_value(s.khz, ""); }},
    Sort_key{"signal", [](const Station& s) { return Sort_value(-s.rssi_dbuv, ""); }},
    Sort_key{"kind", [](const Station& s) { return Sort_value(0, s.kind); }},
    Sort_key{"type", [](const Station& s) { return Sort_value(0, s.programme_type); }},
    Sort_key{"id", [](const Station& s) { return Sort_value(s.service_id, ""); }}};

}  // namespace

std::vector<Station> list_stations(std::span<const Scan> scans) {
  std::map<std::tuple<bool, std::uint32_t, std::uint32_t>, Station> found;
  for (const auto& scan : scans) {
    for (const auto& block : scan.blocks) {
      for (const auto& service : block.services) {
        found.insert_or_assign({false, block.khz, service.id}, make_station(block, service));
      }
    }
    for (const auto& heard : scan.fm_stations) {
      found.insert_or_assign({true, heard.khz, 0}, make_station(heard));
    }
  }
  return take_stations(found);
}

std::vector<std::uint32_t> frequency_list_of(const Station& station, std::span<const Scan> scans) {
  for (std::size_t i = scans.size(); i-- > 0;) {
    const auto& scan = scans[i];
    std::vector<std::uint32_t> frequencies;
    for (const auto& block : scan.blocks) frequencies.push_back(block.khz);
    if (!station.is_fm && station.index < frequencies.size() &&
        frequencies[station.index] == station.khz) {
      return frequencies;
    }
  }
  return {};
}

Station_reference refer_to(const Station& station) {
  return {station.name, station.is_fm, station.khz, station.service_id, station.component_id};
}

bool operator==(const Station_reference& a, const Station_reference& b) {
  return std::tie(a.is_fm, a.khz, a.service_id, a.component_id) ==
         std::tie(b.is_fm, b.khz, b.service_id, b.component_id);
}

const Station* find_station(std::span<const Station> stations, const Station_reference& wanted) {
  const auto found = std::ranges::find(stations, wanted, refer_to);
  return found == stations.end() ? nullptr : &*found;
}

std::string kestrel_command(const Station& s) {
  if (s.is_fm) return fmt::format("sudo kestrel -F {}", s.khz);
  if (!s.obstacle().empty() || s.index == 0 || s.service_id == 0 || s.component_id == 0) return "";
  return fmt::format("sudo kestrel -f {} -e {} -c {} -p", s.index, s.service_id, s.component_id);
}

std::vector<Station> find_stations(std::span<const Station> stations, std::string_view name,
                                   const Station_filter& filter) {
  const auto wanted = fold(make_harmless(name));
  // What has audio comes before how close the name is, what can be played after it.
  std::tuple closest(false, has_words, false);
  std::map<std::tuple<std::string, bool, std::uint32_t>, Station> found;
  for (const auto& station : stations) {
    auto key = natural_key(station.name);
    const auto is = closeness_to(wanted, fold(station.name));
    const bool is_wanted =
        (!filter.service_id || *filter.service_id == station.service_id) &&
        (filter.block.empty() || fold(filter.block) == fold(block_name(station.khz)));
    const std::tuple rank(station.kind != "data", is, station.obstacle().empty());
    if (is == no || !is_wanted || rank < closest) continue;
    if (rank > closest) found.clear();
    closest = rank;
    const auto fm_id = station.pi != 0 ? station.pi : station.khz;
    const auto [twin, is_new] = found.try_emplace(
        {std::move(key), station.is_fm, station.is_fm ? fm_id : station.service_id}, station);
    if (!is_new && station.rssi_dbuv > twin->second.rssi_dbuv) twin->second = station;
  }
  return take_stations(found);
}

std::vector<std::string> find_nearest(std::span<const std::string> names, std::string_view typed) {
  constexpr std::size_t longest = 64;
  constexpr std::size_t most = 3;
  const auto wanted = decode_utf8(fold(make_harmless(typed))).substr(0, longest);
  std::map<std::tuple<std::size_t, std::string>, std::string> nearest;
  for (const auto& name : names) {
    const auto distance = distance_to_part(decode_utf8(fold(name)), wanted);
    if (!wanted.empty() && distance <= wanted.size() / 3)
      nearest.emplace(std::tuple(distance, natural_key(name)), name);
  }
  std::vector<std::string> list;
  for (const auto& [key, name] : nearest) {
    if (list.size() < most) list.push_back(name);
  }
  return list;
}

std::vector<std::string> nearest_names(std::span<const Station> stations, std::string_view typed) {
  std::vector<std::string> names;
  for (const auto& station : stations) names.push_back(station.name);
  return find_nearest(names, typed);
}

std::vector<std::string> sort_keys() {
  std::vector<std::string> names;
  names.reserve(keys.size());
  for (const auto& key : keys) names.emplace_back(key.name);
  return names;
}

void sort_stations(std::vector<Station>& stations, std::string_view key) {
  const auto* chosen = std::ranges::find(keys, key, &Sort_key::name);
  if (chosen == keys.end()) chosen = keys.begin();
  std::multimap<std::tuple<Sort_value, std::string, std::uint32_t, std::uint32_t>, Station> sorted;
  for (auto& s : stations) {
    std::tuple place(chosen->value(s), natural_key(s.name), s.khz, s.service_id);
    sorted.emplace(std::move(place), std::move(s));
  }
  stations = take_stations(sorted);
}

}  // namespace kestrelctl
