// SPDX-License-Identifier: GPL-3.0-or-later
//
// What differs between Raspberry Pi models, and what the firmware's config.txt sets on this one.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kestrelctl::doctor {

enum class Severity { ok, warning, failure };

/// The first `most_bytes` of a regular file; nothing if it is missing or unreadable.
std::optional<std::string> read_file(const std::filesystem::path& path,
                                     std::size_t most_bytes = 65536);
/// `text` without white space and NUL bytes at its ends.
std::string_view trim(std::string_view text);
/// Whether `word` is one of `words`, which blanks separate.
bool has_word(std::string_view words, std::string_view word);

/// A group of models. The core clocks are the firmware's defaults, 0 where they are not known.
struct Model {
  std::string_view name;  ///< how the name in the device tree begins
  Severity severity;
  std::string_view note;  ///< what is wrong with it
  unsigned idle_core_mhz;
  unsigned load_core_mhz;
  std::string_view sections;  ///< of config.txt, those for this model
};

/// @return the row for the name in the device tree, or null.
const Model* find_model(std::string_view name);

/// A setting of config.txt that applies to this board, or may do so.
struct Setting {
  unsigned value;
  std::string place;  ///< "in /boot/config.txt", with the section if it is unsure
};

struct Boot_config {
  std::string file;  ///< its absolute path on the board
  bool is_readable = false;
  std::optional<Setting> spi;       ///< 0 or 1
  std::optional<Setting> core_mhz;  ///< 1 to 9999
};

/// Read config.txt below `root`. `model` may be null.
Boot_config read_boot_config(const std::filesystem::path& root, const Model* model);

}  // namespace kestrelctl::doctor
