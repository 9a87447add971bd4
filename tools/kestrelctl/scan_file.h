// SPDX-License-Identifier: GPL-3.0-or-later
//
// A scan file as records: which frequencies the receiver visited, what it received there, and the
// stations it found. Reads kestrel's own document and the list of an FM scan.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kestrelctl {

using Paths = std::vector<std::filesystem::path>;

/// A file that cannot be read as a scan; the message says where and why, in one line.
class Unreadable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Component {
  std::uint32_t id = 0;
  unsigned transport = 0;  ///< 0: an audio stream
  unsigned type = 0;       ///< of audio: 63 is DAB+, 0 is DAB
  bool is_scrambled = false;
};

struct Service {
  std::string name;  ///< harmless UTF-8
  std::uint32_t id = 0;
  bool is_data = false;
  bool has_conditional_access = false;
  unsigned programme_type = 0;
  std::vector<Component> components;

  /// The component to play: the first with an audio stream, else the first; null if it has none.
  [[nodiscard]] const Component* main_component() const;
  /// "DAB", "DAB+" or "data".
  [[nodiscard]] std::string_view kind() const;
};

/// What the receiver's frequency list holds, and so a scan.
inline constexpr std::size_t longest_frequency_list = 48;

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
};

/// "12C"; empty for a frequency that is not a block of band III.
std::string block_name(std::uint32_t khz);

/// A station of the FM band as a scan heard it.
struct Fm_station {
  std::uint32_t khz = 0;
  std::uint16_t pi = 0;  ///< 0: not received
  std::string ps;        ///< harmless UTF-8; empty: not received
  unsigned programme_type = 0;
  int rssi_dbuv = 0;
  int snr_db = 0;
};

struct Location_question {
  std::string_view key;   ///< in kestrel's document
  std::string_view name;  ///< for people
};
/// Where the antenna was during the scan, in the order in which kestrel asks for it.
inline constexpr std::array location_questions{Location_question{"StreetNo", "Street number"},
                                               Location_question{"Street", "Street"},
                                               Location_question{"PostalCode", "Postal code"},
                                               Location_question{"City", "City"},
                                               Location_question{"Country", "Country"},
                                               Location_question{"Floor", "Floor"},
                                               Location_question{"gps_latitude", "Latitude"},
                                               Location_question{"gps_longitude", "Longitude"}};
using Location = std::array<std::string, location_questions.size()>;

struct Scan {
  std::filesystem::path path;       ///< empty if it was read from a text
  bool is_fm = false;               ///< has `fm_stations`, else `blocks`
  std::chrono::sys_seconds time{};  ///< as transmitted or written in it, else the file's own
  Location location;                ///< harmless answers
  std::vector<Block> blocks;
  std::vector<Fm_station> fm_stations;
};

/// Of the bytes of a file, without `path`; `time` is 0 if nothing in it says one. Throws
/// Unreadable.
Scan read_scan_text(std::string_view text);
/// Throws Unreadable with a message that begins with the file's name.
Scan read_scan_file(const std::filesystem::path& path);
/// The scans of these files, the oldest first. Of several, one that is unreadable is named on
/// standard error and passed over. Throws Unreadable if none is left.
std::vector<Scan> read_scans(const Paths& paths);

/// The document of an FM scan, which read_scan_text() reads.
std::string write_fm_scan(const std::vector<Fm_station>& stations, std::chrono::sys_seconds time);

/// "2024-03-05T09:47:44Z"
std::string format_utc(std::chrono::sys_seconds time);

/// The name of a programme type, 0 to 31, of DAB or of FM.
std::string_view programme_type_name(unsigned type, bool is_fm = false);

}  // namespace kestrelctl
