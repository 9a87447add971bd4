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
#include <utility>

#include "sim/chip_state.h"

namespace sim {

/// A file descriptor that is closed when its owner goes; negative when opening failed.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  [[nodiscard]] int get() const { return number_; }
  [[nodiscard]] bool is_open() const { return number_ >= 0; }

 private:
  int number_;
};

class Board_directory {
 public:
  /// Open the directory, or make it (mode 0700; its parent must exist). One line
  /// on standard error and is_open() false when that fails.
  explicit Board_directory(const std::filesystem::path& path);

  [[nodiscard]] bool is_open() const { return directory_.is_open(); }

  /// The saved state; nothing when there is none. A damaged or foreign state file
  /// counts as none, with one line on standard error.
  [[nodiscard]] std::optional<Saved_state> load() const;

  /// True when no state was ever saved here: the board is new.
  [[nodiscard]] bool is_new() const;

  [[nodiscard]] bool has_file(const char* name) const;

  /// Replace the state file in one step: whoever reads it, at whatever moment
  /// this process dies, finds the old or the new state whole.
  void save(const Saved_state& state);

  /// Write the board's files, path and content; files that exist are left alone.
  void make_files(const std::map<std::string, std::string>& files);

  /// Open a file of the board by its path on the board.
  [[nodiscard]] std::FILE* open_file(const std::string& path, const char* mode) const;

 private:
  static Descriptor open_or_make(const std::filesystem::path& path);

  std::filesystem::path path_;
  Descriptor directory_;
  bool has_complained_ = false;
};

}  // namespace sim
