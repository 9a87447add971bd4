// SPDX-License-Identifier: GPL-3.0-or-later
//
// What kestrelctl keeps between its runs, in one directory: settings.json, and the scans in scans/.
// Everybody may read it. Files are replaced whole; one that is damaged is named on standard error,
// set aside as FILE.damaged, and taken for absent.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "kestrelctl/scan_file.h"
#include "kestrelctl/stations.h"

namespace kestrelctl {

inline constexpr unsigned highest_volume = 63;
inline constexpr unsigned highest_preset = 999;

struct Settings {
  std::map<unsigned, Station_reference> presets;  ///< by number, 1 to highest_preset
  std::optional<Station_reference> last;          ///< what was played last
  bool is_stopped = false;                        ///< and stopped since
  std::optional<unsigned> volume;                 ///< 0 to highest_volume
  Location location;                              ///< kestrel's answers; empty ones: not given
};

class Store {
 public:
  static constexpr const char* default_directory = "/var/lib/kestrel";

  /// Nothing is read or made yet.
  explicit Store(std::filesystem::path directory = default_directory)
      : directory_(std::move(directory)) {}

  /// Never throws for what is in the file; what is missing or damaged is empty. Throws
  /// std::runtime_error for a file that is there and cannot be read.
  [[nodiscard]] Settings settings() const;
  /// Reads the settings, has `change` change them, and writes them, while no other process does the
  /// same. Throws as save().
  void update(const std::function<void(Settings&)>& change) const;
  /// Makes the directory if it is not there. Throws std::runtime_error with the file's name.
  void save(const Settings& settings) const;

  /// Keeps kestrel's own document as scans/ensemblescan_<time>.json, or with a number after the
  /// time if there is one already. The path; throws std::runtime_error.
  std::filesystem::path save_scan(std::string_view document, std::chrono::sys_seconds time) const;
  /// Keeps an FM scan as scans/fmscan_<time>.json, likewise.
  std::filesystem::path save_fm_scan(const std::vector<Fm_station>& stations,
                                     std::chrono::sys_seconds time) const;

  /// All that can be read, the oldest first, DAB and FM.
  [[nodiscard]] std::vector<Scan> scans() const;
  /// What to show and play: of each DAB frequency what the newest scan that visited it found, so
  /// that a scan that was interrupted takes nothing away; of FM the newest scan.
  [[nodiscard]] std::vector<Station> stations() const;
  /// The DAB frequencies in kHz that the scans have visited, at most 48: those of the newest first.
  [[nodiscard]] std::vector<std::uint32_t> scanned_frequencies() const;

 private:
  std::filesystem::path save_new(std::string_view prefix, std::string_view text,
                                 std::chrono::sys_seconds time) const;

  std::filesystem::path directory_;
};

/// The scans of these files; without any those of the store, and if it has none the newest
/// ensemblescan_*.json of the current directory. The oldest comes first. Throws Unreadable if there
/// is none.
std::vector<Scan> read_scans_or_store(const Paths& paths, const Store& store);

}  // namespace kestrelctl
