// SPDX-License-Identifier: GPL-3.0-or-later
//
// From a name to sound: play, next and previous, stop and off, presets and the volume.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iostream>

#include "kestrelctl/commands.h"
#include "kestrelctl/radio.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

std::string join(const std::vector<std::string>& words, const char* separator) {
  return fmt::format("{}", fmt::join(words, separator));
}

/// All digits, and within what a number may be; nothing for other words.
std::optional<unsigned> whole_number(std::string_view text) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), number);
  return error == std::errc() && end == text.end() ? std::optional(number) : std::nullopt;
}

/// The one station that the name means; Failure with the choice, or the nearest names, if it is not
/// just one.
Station choose(const std::vector<Station>& stations, const std::string& name,
               const Station_filter& filter) {
  const auto found = find_stations(stations, name, filter);
  if (found.size() == 1) return found.front();
  if (found.empty()) {
    auto sentence = fmt::format("No station is called \"{}\".", make_harmless(name));
    const auto names = nearest_names(stations, name);
    if (!names.empty()) sentence += fmt::format(" Do you mean {}?", join(names, ", "));
    if (stations.empty()) sentence += " There is no scan yet: run kestrelctl scan.";
    throw Failure(sentence, exit_status::not_found);
  }
  auto sentence = fmt::format("\"{}\" may be, with --block, --service or --fm to tell them apart:",
                              make_harmless(name));
  for (const auto& station : found) {
    sentence += fmt::format("\n  {}, {}", station.name, station.place());
    if (!station.is_fm) sentence += fmt::format(", service {}", station.service_id);
  }
  throw Failure(sentence, exit_status::ambiguous);
}

Station fm_station(const Store& store, double mhz) {
  Station station;
  station.is_fm = true;
  station.kind = "FM";
  station.khz = static_cast<std::uint32_t>(std::lround(mhz * 100)) * 10;
  const auto stations = store.stations();
  if (const auto* known = find_station(stations, refer_to(station))) return *known;
  station.name = station.place();
  return station;
}

Station wanted_station(const Store& store, const Play_options& options) {
  const auto settings = store.settings();
  if (options.plays_last) {
    if (!settings.last) throw Failure("Nothing has been played yet.", exit_status::not_found);
    return station_of(store, *settings.last);
  }
  if (options.fm_mhz) return fm_station(store, *options.fm_mhz);
  const auto name = join(options.words, " ");
  if (const auto number = whole_number(name)) {
    const auto preset = settings.presets.find(*number);
    if (preset != settings.presets.end()) return station_of(store, preset->second);
  }
  return choose(options.files.empty() ? store.stations() : list_stations(read_scans(options.files)),
                name, options.filter);
}

int play(Store& store, const Station& station, const Paths& files = {}) {
  Radio radio(store);
  const auto reception =
      files.empty() ? radio.play(station) : radio.play(station, read_scans(files));
  fmt::print(std::cout, "Playing {}\n", describe(station, reception));
  return exit_status::success;
}

}  // namespace

int play_command(Store& store, const Play_options& options) {
  const auto station = wanted_station(store, options);
  if (options.is_dry_run) {
    const auto command = kestrel_command(station);
    if (command.empty()) {
      throw Failure(station.name + " cannot be played from kestrel's command line");
    }
    fmt::print(std::cout, "{}\n", command);
    return exit_status::success;
  }
  if (options.volume) {
    store.update([&options](Settings& settings) {
      settings.volume = static_cast<unsigned>(*options.volume);
    });
  }
  return play(store, station, options.files);
}

int step_command(Store& store, int step) { return play(store, Radio(store).neighbour(step)); }

int stop_command(Store& store) {
  Radio(store).stop();
  return exit_status::success;
}

int off_command(Store& store) {
  Radio(store).off();
  return exit_status::success;
}

int volume_command(Store& store, const std::string& change) {
  Radio radio(store);
  if (!change.empty()) {
    constexpr auto highest = static_cast<int>(highest_volume);
    const bool is_step = change.front() == '+' || change.front() == '-';
    const auto number = whole_number(std::string_view(change).substr(is_step ? 1 : 0));
    if (!number) {
      throw Failure("The volume is a number from 0 to 63, or a step such as +5",
                    exit_status::usage);
    }
    const int amount = static_cast<int>(std::min(*number, highest_volume));
    const int from = change.front() == '+' ? radio.volume() : 0;
    radio.set_volume(
        std::clamp(change.front() == '-' ? radio.volume() - amount : from + amount, 0, highest));
  }
  fmt::print(std::cout, "{}\n", radio.volume());
  return exit_status::success;
}

int list_presets_command(const Store& store) {
  for (const auto& [number, preset] : store.settings().presets) {
    const auto station = station_of(store, preset);
    fmt::print(std::cout, "{:>3}  {}, {}\n", number, station.name, station.place());
  }
  return exit_status::success;
}

int set_preset_command(Store& store, unsigned number, const Play_options& station) {
  const auto chosen = wanted_station(store, station);
  store.update([&](Settings& settings) { settings.presets[number] = refer_to(chosen); });
  fmt::print(std::cout, "{:>3}  {}, {}\n", number, chosen.name, chosen.place());
  return exit_status::success;
}

int remove_preset_command(Store& store, unsigned number) {
  store.update([number](Settings& settings) {
    if (settings.presets.erase(number) == 0) {
      throw Failure(fmt::format("There is no preset {}.", number), exit_status::not_found);
    }
  });
  return exit_status::success;
}

}  // namespace kestrelctl
