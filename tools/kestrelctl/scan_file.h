// SPDX-License-Identifier: GPL-3.0-or-later
//
// A scan file as records: which blocks the receiver visited, what it received there, and the
// services it found.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kestrelctl/unreadable.h"

namespace kestrelctl {

struct Component {
  std::uint32_t id = 0;
  unsigned transport = 0;  ///< 0: an audio stream
  unsigned type = 0;       ///< of audio: 63 is DAB+, 0 is DAB
};

struct Service {
  std::string name;  ///< harmless UTF-8
  std::uint32_t id = 0;
  bool is_data = false;
  unsigned programme_type = 0;
  std::vector<Component> components;

  /// The component to play: the first with an audio stream, else the first; null if it has none.
  [[nodiscard]] const Component* main_component() const;
  /// "DAB", "DAB+" or "data".
  [[nodiscard]] std::string_view kind() const;
};

/// One entry of the frequency list.
struct Block {
  unsigned index = 0;
  std::uint32_t khz = 0;
  int rssi_dbuv = 0;
  int snr_db = 0;
  unsigned cnr_db = 0;
  unsigned fic_quality = 0;  ///< percent
  bool is_valid = false;
  bool is_acquired = false;
  std::vector<Service> services;

  /// Was there anything but noise?
  [[nodiscard]] bool has_signal() const;
  /// "12C"; empty for a frequency that is no block of band III.
  [[nodiscard]] std::string name() const;
};

struct Scan {
  std::filesystem::path path;       ///< empty if it was read from a text
  std::string file;                 ///< its name, harmless
  std::chrono::sys_seconds time{};  ///< as its ensembles transmitted it, else when it was written
  std::vector<std::pair<std::string, std::string>> location;  ///< the answers that were given
  std::vector<Block> blocks;
  std::vector<Repair> repairs;  ///< what the file needed to be read
};

/// Of `text`, without `file` and `time` if no ensemble had one. Throws Unreadable.
Scan read_scan_text(std::string_view text);
/// Throws Unreadable with a message that begins with the file's name.
Scan read_scan_file(const std::filesystem::path& path);
/// The scans of these files, or of the newest `ensemblescan_*.json` of the current directory if
/// there are none; the oldest scan first. What was mended is said on standard error, in one line a
/// file. Throws Unreadable.
std::vector<Scan> read_scans(const std::vector<std::filesystem::path>& paths);

/// "2024-03-05T09:47:44Z"
std::string format_utc(std::chrono::sys_seconds time);

/// The name of a programme type, 0 to 31.
std::string_view programme_type_name(unsigned type);

}  // namespace kestrelctl
