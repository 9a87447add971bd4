// SPDX-License-Identifier: GPL-3.0-or-later
//
// The board's directory: the receiver's state file and the board's own files. It
// is held by a descriptor, because the program runs as root and the path may go
// through places that others can write.
#pragma once

#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "sim/chip_state.h"

namespace sim {

class Board_directory {
 public:
  /// Open the directory, or make it (mode 0700; its parent must exist). One line
  /// on standard error and is_open() false when it is a symbolic link, no
  /// directory, another user's, or writable by others.
  explicit Board_directory(const std::filesystem::path& path);
  ~Board_directory();
  Board_directory(const Board_directory&) = delete;
  Board_directory& operator=(const Board_directory&) = delete;

  [[nodiscard]] bool is_open() const { return descriptor_ >= 0; }

  /// The saved state; nothing when there is none. A damaged or foreign state file
  /// counts as none, with one line on standard error.
  [[nodiscard]] std::optional<Saved_state> load() const;

  /// True when no state was ever saved here: the board is new.
  [[nodiscard]] bool is_new() const;

  /// Replace the state file in one step: whoever reads it, at whatever moment
  /// this process dies, finds the old or the new state whole.
  void save(const Saved_state& state);

  /// Write the board's files, path and content; files that exist are left alone.
  void make_files(const std::map<std::string, std::string>& files);

  /// Open a file of the board by its path on the board.
  [[nodiscard]] std::FILE* open_file(const std::string& path, const char* mode) const;

 private:
  void complain(const char* what) const;

  std::filesystem::path path_;
  int descriptor_ = -1;
  bool has_complained_ = false;
};

}  // namespace sim
