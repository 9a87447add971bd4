// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/radio.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>

namespace kestrelctl {
namespace {

// Loud enough to be heard, and not too loud for headphones.
constexpr unsigned first_volume = 40;

/// "2024-03-05T10:47+01:00"
std::string format_local(const Rds_time& time) {
  const auto offset = time.utc_offset.count();
  return fmt::format("{:%FT%H:%M}{}{:02}:{:02}",
                     fmt::gmtime(std::chrono::sys_seconds(time.local.time_since_epoch())),
                     offset < 0 ? '-' : '+', std::abs(offset) / 60, std::abs(offset) % 60);
}

unsigned stored_volume(const Settings& settings) { return settings.volume.value_or(first_volume); }

}  // namespace

Station station_of(const Store& store, const Station_reference& wanted) {
  const auto stations = store.stations();
  if (const auto* found = find_station(stations, wanted)) return *found;
  Station station;
  station.name = wanted.name;
  station.is_fm = wanted.is_fm;
  station.khz = wanted.khz;
  station.service_id = wanted.service_id;
  station.component_id = wanted.component_id;
  return station;
}

Reception Radio::play(const Station& station, std::span<const Scan> scans) {
  if (const auto obstacle = station.obstacle(); !obstacle.empty()) {
    throw Failure(fmt::format("{} cannot be played: {}", station.name, obstacle),
                  exit_status::no_reception);
  }
  const auto settings = store_.settings();
  Reception reception;
  {
    Receiver receiver;
    const auto volume = static_cast<int>(stored_volume(settings));
    if (!receiver.ensure_firmware(station.is_fm ? Firmware::fm : Firmware::dab, volume) &&
        receiver.volume() != volume) {
      receiver.set_volume(volume);
    }
    if (station.is_fm) {
      receiver.tune_fm(station.khz);
    } else {
      receiver.play_dab(station, frequency_list_of(station, scans));
    }
    reception = receiver.reception();
  }
  if (settings.is_stopped || settings.last != std::optional(refer_to(station))) {
    try {
      store_.update([&station](Settings& now) {
        now.last = refer_to(station);
        now.is_stopped = false;
      });
    } catch (const std::runtime_error& error) {
      // It plays all the same.
      std::cerr << fmt::format("kestrelctl: {}: what plays is not remembered\n", error.what());
    }
  }
  return reception;
}

Station Radio::neighbour(int step) const {
  const auto settings = store_.settings();
  const auto stations = store_.stations();
  std::vector<Station> choice;
  if (settings.presets.empty()) {
    choice = stations;
    std::erase_if(choice, [](const Station& station) { return !station.obstacle().empty(); });
    sort_stations(choice, "name");
  }
  for (const auto& [number, preset] : settings.presets) {
    choice.push_back(station_of(store_, preset));
  }
  if (choice.empty()) {
    throw Failure("There are no presets and no stations yet. Run kestrelctl scan.",
                  exit_status::not_found);
  }
  const auto size = static_cast<std::ptrdiff_t>(choice.size());
  const auto last = std::ranges::find_if(choice, [&settings](const Station& station) {
    return settings.last && refer_to(station) == *settings.last;
  });
  // Before the first there is none: the search begins at the end that lies in its direction.
  std::ptrdiff_t place = step > 0 ? 0 : size - 1;
  if (last != choice.end()) place = (last - choice.begin() + step + size) % size;
  return choice[static_cast<std::size_t>(place)];
}

void Radio::set_volume(int volume) {
  bool is_silent = false;
  store_.update([&](Settings& settings) {
    settings.volume = static_cast<unsigned>(volume);
    is_silent = settings.is_stopped;
  });
  Receiver receiver;
  const auto firmware = receiver.firmware();
  // FM is stopped by its volume; the next station gets the new one.
  if (firmware != Firmware::off && !(is_silent && firmware == Firmware::fm)) {
    receiver.set_volume(volume);
  }
}

int Radio::volume() const { return static_cast<int>(stored_volume(store_.settings())); }

void Radio::stop() {
  {
    Receiver receiver;
    const auto reception = receiver.reception();
    if (reception.khz == 0) throw Failure("Nothing is playing.", exit_status::not_found);
    if (reception.firmware == Firmware::fm) receiver.set_volume(0);
    if (reception.firmware == Firmware::dab) {
      // What was started last may have been started by kestrel: the packets know.
      (void)receiver.drain_text(text_);
      const auto station = playing_station(reception);
      if (!station) throw Failure("Nothing is playing.", exit_status::not_found);
      receiver.stop_dab(*station);
    }
    text_ = {};
  }
  store_.update([](Settings& settings) { settings.is_stopped = true; });
}

void Radio::off() { Receiver().power_down(); }

std::optional<Station> Radio::playing_station(const Reception& reception) {
  const auto settings = store_.settings();
  const auto& last = settings.last;
  const bool knows_service = reception.firmware == Firmware::dab && text_.service_id != 0;
  const auto is_playing = [&](const auto& station) {
    if (station.khz != reception.khz || station.is_fm != (reception.firmware == Firmware::fm)) {
      return false;
    }
    return station.is_fm || (knows_service && station.service_id == text_.service_id &&
                             station.component_id == text_.component_id);
  };
  // What was started last is believed until the packets tell of another service.
  if (last && last->khz == reception.khz && (!knows_service || is_playing(*last))) {
    if (settings.is_stopped) return std::nullopt;
    if (known_last_ != last) {
      known_ = station_of(store_, *last);
      known_last_ = last;
    }
    return known_;
  }
  // Looking into the scans each time would be too much.
  if (known_ && is_playing(*known_)) return known_;
  const std::pair sought(reception.khz, text_.service_id);
  if (unknown_ == sought) return std::nullopt;
  const auto stations = store_.stations();
  const auto found = std::ranges::find_if(stations, is_playing);
  if (found == stations.end()) {
    unknown_ = sought;
    return std::nullopt;
  }
  known_last_.reset();
  return known_ = *found;
}

Now Radio::look() {
  Now now;
  {
    Receiver receiver;
    now.reception = receiver.reception();
    if (now.reception.firmware == Firmware::off) {
      now.volume = volume();
      return now;
    }
    // Another program may have started another service of the ensemble.
    const auto settings = store_.settings();
    if (now.reception.khz != heard_khz_ || settings.last != heard_last_) {
      heard_khz_ = now.reception.khz;
      heard_last_ = settings.last;
      text_ = {};
      rds_ = {};
    }
    now.is_silent = settings.is_stopped && now.reception.firmware == Firmware::fm;
    now.volume = now.is_silent ? volume() : receiver.volume();
    if (now.reception.firmware == Firmware::dab) {
      now.heard = receiver.drain_text(text_);
      now.text = text_.label.state();
      if (const auto time = receiver.ensemble_time()) now.broadcast_time = format_utc(*time);
    } else if (now.reception.firmware == Firmware::fm) {
      now.heard = receiver.drain_rds(rds_);
      now.rds = rds_.decoder.state();
      if (now.rds.time) now.broadcast_time = format_local(*now.rds.time);
      now.text = rds_.label();
    }
  }
  now.station = playing_station(now.reception);
  return now;
}

std::vector<Now> split_by_text(const Now& now) {
  std::vector<Now> each(std::max<std::size_t>(now.heard.size(), 1), now);
  for (std::size_t i = 0; i < now.heard.size(); ++i) each[i].text = now.heard[i];
  return each;
}

std::string describe(const Station& station, const Reception& reception) {
  return fmt::format("{}, {}, {} dBuV, SNR {}", station.name, station.place(), reception.rssi_dbuv,
                     reception.snr_db);
}

}  // namespace kestrelctl
