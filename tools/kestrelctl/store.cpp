// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/store.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>

#include "kestrelctl/files.h"
#include "kestrelctl/text.h"
#include "si468x/input_file.h"

namespace kestrelctl {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Station_reference, name, is_fm, khz, service_id, component_id)

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::string_view dab_prefix = "ensemblescan_", fm_prefix = "fmscan_";

/// Throws std::exception for what is not as Store::save() has it.
Settings to_settings(const json& document) {
  Settings settings;
  document.at("presets").get_to(settings.presets);
  document.at("location").get_to(settings.location);
  if (document.contains("last")) settings.last = document["last"].get<Station_reference>();
  settings.is_stopped = document.value("stopped", false);
  if (document.contains("volume")) settings.volume = document["volume"].get<unsigned>();
  if (settings.volume > highest_volume ||
      settings.presets.upper_bound(highest_preset) != settings.presets.end()) {
    throw std::out_of_range("a number");
  }
  for (auto& [number, station] : settings.presets) station.name = make_harmless(station.name);
  for (auto& answer : settings.location) answer = make_harmless(answer);
  if (settings.last) settings.last->name = make_harmless(settings.last->name);
  return settings;
}

void set_aside(const fs::path& path) {
  std::error_code error;
  fs::path aside = path.string() + ".damaged";
  for (unsigned again = 2; fs::exists(aside, error); ++again) {
    aside = fmt::format("{}.damaged-{}", path.string(), again);
  }
  fs::rename(path, aside, error);
  std::cerr << "kestrelctl: " << make_harmless(path.string()) << " is damaged"
            << (error ? "" : ", and is now " + make_harmless(aside.filename().string())) << '\n';
}

/// With mode 0755, whatever the umask.
void make_directory(const fs::path& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) return;
  if (fs::create_directories(path, error); !error) {
    fs::permissions(path, fs::perms(0755), error);
  }
  if (error) refuse_file(path, error.message());
}

/// The paths of the files "PREFIX*.json" of a directory; none if it cannot be read.
Paths list_scan_files(const fs::path& directory, std::string_view prefix) {
  Paths paths;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    const auto name = entry.path().filename().string();
    if (name.starts_with(prefix) && name.ends_with(".json") && entry.is_regular_file(error)) {
      paths.push_back(entry.path().lexically_normal());
    }
  }
  std::ranges::sort(paths);
  return paths;
}

}  // namespace

Settings Store::settings() const {
  constexpr std::size_t most_bytes = 1U << 20U;
  const auto path = directory_ / "settings.json";
  const auto text = read_file(path, most_bytes);
  if (!text) {
    if (errno == ENOENT || errno == ENOTDIR) return {};
    refuse_file(path, std::strerror(errno));
  }
  try {
    return to_settings(json::parse(*text));
  } catch (const std::exception&) {  // of the JSON library, or a number that cannot be
    set_aside(path);
    return {};
  }
}

void Store::update(const std::function<void(Settings&)>& change) const {
  make_directory(directory_);
  // Without the lock, on a file system that has none, the last one to write is right.
  const Input_file lock(std::fopen(directory_.c_str(), "re"));
  if (lock) (void)::flock(::fileno(lock.get()), LOCK_EX);
  auto settings = this->settings();
  change(settings);
  save(settings);
}

void Store::save(const Settings& settings) const {
  json document{{"presets", settings.presets}, {"location", settings.location}};
  if (settings.last) document["last"] = *settings.last;
  if (settings.is_stopped) document["stopped"] = true;
  if (settings.volume) document["volume"] = *settings.volume;
  make_directory(directory_);
  (void)write_file_atomically(directory_ / "settings.json",
                              document.dump(2, ' ', false, json::error_handler_t::replace) + '\n');
}

fs::path Store::save_new(std::string_view prefix, std::string_view text,
                         std::chrono::sys_seconds time) const {
  make_directory(directory_);
  make_directory(directory_ / "scans");
  const auto name = fmt::format("{}{:%Y-%m-%dT%H%M%SZ}", prefix, time);
  for (unsigned again = 1;; ++again) {
    auto path = directory_ / "scans" /
                (again == 1 ? name + ".json" : fmt::format("{}-{}.json", name, again));
    if (write_file_atomically(path, text, If_present::keep)) return path;
  }
}

fs::path Store::save_scan(std::string_view document, std::chrono::sys_seconds time) const {
  return save_new(dab_prefix, document, time);
}

fs::path Store::save_fm_scan(const std::vector<Fm_station>& stations,
                             std::chrono::sys_seconds time) const {
  return save_new(fm_prefix, write_fm_scan(stations, time), time);
}

std::vector<Scan> Store::scans() const {
  std::vector<Scan> scans;
  for (const auto prefix : {dab_prefix, fm_prefix}) {
    for (const auto& path : list_scan_files(directory_ / "scans", prefix)) {
      try {
        scans.push_back(read_scan_file(path));
      } catch (const Unreadable& error) {
        std::cerr << "kestrelctl: " << error.what() << '\n';
        set_aside(path);
      }
    }
  }
  std::ranges::stable_sort(scans, {}, &Scan::time);
  return scans;
}

std::vector<Station> Store::stations() const {
  auto scans = this->scans();
  std::set<std::uint32_t> visited_khz;
  bool has_fm = false;
  for (std::size_t i = scans.size(); i-- > 0;) {
    auto& scan = scans[i];
    std::erase_if(scan.blocks, [&](const Block& block) { return visited_khz.contains(block.khz); });
    for (const auto& block : scan.blocks) visited_khz.insert(block.khz);
    if (scan.is_fm && std::exchange(has_fm, true)) scan.fm_stations.clear();
  }
  return list_stations(scans);
}

std::vector<std::uint32_t> Store::scanned_frequencies() const {
  std::vector<std::uint32_t> list;
  const auto scans = this->scans();
  for (std::size_t i = scans.size(); i-- > 0;) {
    for (const auto& block : scans[i].blocks) {
      const bool is_new = block.khz != 0 && std::ranges::find(list, block.khz) == list.end();
      if (is_new && list.size() < longest_frequency_list) list.push_back(block.khz);
    }
  }
  return list;
}

std::vector<Scan> read_scans_or_store(const Paths& paths, const Store& store) {
  if (!paths.empty()) return read_scans(paths);
  if (auto scans = store.scans(); !scans.empty()) return scans;
  const auto here = list_scan_files(".", dab_prefix);
  if (here.empty()) {
    throw Unreadable("there is no scan yet: make one with sudo kestrelctl scan, or name a file");
  }
  auto scans = read_scans(here);
  scans.erase(scans.begin(), scans.end() - 1);
  return scans;
}

}  // namespace kestrelctl
