// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl scan`: visits every frequency of the receiver's list, or seeks through the FM band,
// keeps what was found in the store, and says what has changed since the scan before.
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <sstream>

#include "kestrelctl/commands.h"
#include "kestrelctl/radio.h"
#include "kestrelctl/text.h"
#include "scan/ensemble_list.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::chrono::sys_seconds now() {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

/// How far the scan is: one line that is written over and over on a terminal, else one per step.
class Progress {
 public:
  explicit Progress(const char* unit) : unit_(unit) {}
  void show(unsigned step, unsigned steps, const std::string& found, std::size_t stations) const {
    if (!is_terminal_) {
      fmt::print(std::cout, "{}\n", found);
    } else {
      constexpr unsigned width = 24;
      const auto left = std::chrono::floor<std::chrono::seconds>(
          (Clock::now() - start_) * (steps - step) / std::max(step, 1U));
      const auto done = width * step / steps;
      fmt::print(std::cout, "\r\x1b[K[{:#<{}}{:.<{}}] {} {} of {}, {} stations, {} s left", "",
                 done, "", width - done, unit_, step, steps, stations, left.count());
    }
    std::cout << std::flush;
  }
  void finish() const {
    if (is_terminal_) std::cout << "\r\x1b[K" << std::flush;
  }

 private:
  const char* unit_;
  bool is_terminal_ = isatty(STDOUT_FILENO) != 0;
  Clock::time_point start_ = Clock::now();
};

/// Prints what came, went and changed from one list of stations to the next.
/// Nothing for a first scan, to which everything is new.
void print_changes(const std::vector<Station>& before, const std::vector<Station>& after) {
  if (before.empty()) return;
  const auto print = [](const char* what, const Station& station) {
    fmt::print(std::cout, "{:<8} {}, {}\n", what, station.name, station.place());
  };
  for (const auto& station : after) {
    const auto* known = find_station(before, refer_to(station));
    if (known == nullptr) {
      print("new", station);
    } else if (known->name != station.name || known->is_scrambled != station.is_scrambled) {
      print("changed", station);
    }
  }
  for (const auto& station : before) {
    if (find_station(after, refer_to(station)) == nullptr) print("lost", station);
  }
}

/// The answers of last time with those that were given now, remembered for next time.
Location update_location(Store& store, const Scan_options& options) {
  // Written in any case: a store that cannot be written is better known before the scan.
  Location location;
  store.update([&](Settings& settings) {
    for (const auto& [question, answer] : options.location) {
      settings.location.at(question) = make_harmless(answer);
    }
    location = settings.location;
  });
  return location;
}

void set_location(Ensemble_list& ensembles, const Location& location) {
  constexpr std::array answers{&Ensemble_list::street_no,    &Ensemble_list::street,
                               &Ensemble_list::postal_code,  &Ensemble_list::city,
                               &Ensemble_list::country,      &Ensemble_list::floor,
                               &Ensemble_list::gps_latitude, &Ensemble_list::gps_longitude};
  static_assert(answers.size() == location_questions.size());
  for (std::size_t i = 0; i < answers.size(); ++i) ensembles.*answers.at(i) = location.at(i);
}

/// Visits every index; when a stop signal ends the scan, what was found until then counts.
void visit_all(Receiver& receiver, Ensemble_list& ensembles) {
  const auto list = receiver.frequencies();
  const Progress progress("block");
  std::size_t stations = 0;
  try {
    for (unsigned i = 0; i < list.size(); ++i) {
      const auto visit = receiver.visit(ensembles, static_cast<std::uint8_t>(i));
      ensembles.number_of_frequencies = static_cast<std::uint8_t>(i + 1);
      stations += visit.services;
      const auto place = block_name(list[i]);
      progress.show(i + 1, static_cast<unsigned>(list.size()),
                    fmt::format("{:<4} {:>7.3f} MHz  {:>3} dBuV  {}", place, list[i] / 1000.0,
                                visit.rssi_dbuv,
                                visit.has_ensemble ? fmt::format("{} services", visit.services)
                                : visit.has_signal ? "a signal, but no ensemble"
                                                   : "-"),
                    stations);
    }
  } catch (const Stopped&) {
    // Said when what was found is safe.
  }
  progress.finish();
}

int scan_dab(Store& store, const Scan_options& options) {
  const auto list =
      options.list.empty() ? std::vector<std::uint32_t>() : read_frequency_list(options.list);
  Ensemble_list ensembles;
  set_location(ensembles, update_location(store, options));
  {
    const auto volume = Radio(store).volume();
    Receiver receiver;
    (void)receiver.ensure_firmware(Firmware::dab, volume);
    if (!list.empty()) receiver.set_frequencies(list);
    visit_all(receiver, ensembles);
  }
  if (ensembles.number_of_frequencies == 0) throw Stopped();
  auto before = store.stations();
  std::stringstream document;
  (void)ensembles.json_print_data(document);
  const auto path = store.save_scan(document.str(), now());
  const auto scan = read_scan_file(path);
  // Where a scan that was interrupted has not been, nothing is lost.
  std::erase_if(before, [&scan](const Station& station) {
    return std::ranges::find(scan.blocks, station.khz, &Block::khz) == scan.blocks.end();
  });
  const auto after = list_stations({&scan, 1});
  print_changes(before, after);
  fmt::print(std::cout, "{} stations on {} frequencies, kept in {}\n", after.size(),
             ensembles.number_of_frequencies, path.string());
  return is_stopped() ? exit_status::stopped : exit_status::success;
}

/// The station that is tuned, with what it says of itself within some seconds.
Fm_station listen(Receiver& receiver) {
  constexpr auto patience = 5s;
  constexpr auto step = 100ms;
  Station_rds rds;
  for (std::chrono::milliseconds waited{}; waited < patience; waited += step) {
    (void)receiver.drain_rds(rds);
    if (rds.decoder.state().pi && !rds.decoder.state().ps.empty()) break;
    if (!pause(step)) throw Stopped();
  }
  const auto reception = receiver.reception();
  const auto& heard = rds.decoder.state();
  return {.khz = reception.khz,
          .pi = heard.pi.value_or(0),
          .ps = heard.name(),
          .programme_type = heard.pty.value_or(0),
          .rssi_dbuv = reception.rssi_dbuv,
          .snr_db = reception.snr_db};
}

/// Seeks from the lower end of the band upwards until the search wraps.
std::vector<Fm_station> seek_all(Receiver& receiver) {
  constexpr std::uint32_t lowest_khz = 87500;
  constexpr unsigned steps = 205;  // of 100 kHz in the band
  std::vector<Fm_station> found;
  const Progress progress("step");
  try {
    receiver.tune_fm(lowest_khz);
    bool is_over = false;
    unsigned seeks = 0;
    for (auto khz = lowest_khz; !is_over && seeks < steps; ++seeks) {
      const auto reception = receiver.reception();
      // The search may come round without saying so.
      if (!found.empty() && reception.khz <= khz) break;
      khz = reception.khz;
      if (reception.is_received) {
        found.push_back(listen(receiver));
        const auto& station = found.back();
        progress.show((khz - lowest_khz) / 100, steps,
                      fmt::format("{:>6.2f} MHz  {:>3} dBuV  {}", khz / 1000.0, station.rssi_dbuv,
                                  station.ps),
                      found.size());
      }
      is_over = receiver.seek_fm(true);
    }
  } catch (const Stopped&) {
    // What was found until then counts.
  }
  progress.finish();
  return found;
}

int scan_fm(Store& store) {
  std::vector<Fm_station> found;
  {
    const auto volume = Radio(store).volume();
    Receiver receiver;
    (void)receiver.ensure_firmware(Firmware::fm, volume);
    found = seek_all(receiver);
  }
  if (found.empty() && is_stopped()) throw Stopped();
  auto before = store.stations();
  std::erase_if(before, [](const Station& station) { return !station.is_fm; });
  const auto path = store.save_fm_scan(found, now());
  const auto scan = read_scan_file(path);
  print_changes(before, list_stations({&scan, 1}));
  fmt::print(std::cout, "{} FM stations, kept in {}\n", found.size(), path.string());
  return is_stopped() ? exit_status::stopped : exit_status::success;
}

}  // namespace

int scan_command(Store& store, const Scan_options& options) {
  return options.is_fm ? scan_fm(store) : scan_dab(store, options);
}

}  // namespace kestrelctl
