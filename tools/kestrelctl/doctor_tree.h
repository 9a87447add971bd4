// SPDX-License-Identifier: GPL-3.0-or-later
//
// The files of the examined system. The tree may be the mounted card of another machine, or worse:
// links are resolved as that machine would resolve them, so that none leads out of it, only regular
// files are opened, and of none more than 1 MiB is read. The text helpers of the checks stand here
// too.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrelctl::doctor {

enum class Access { present, absent, unreadable };

/// `text` is the file's content, or its first 1 MiB; empty unless `access` is `present`.
struct Reading {
  Access access = Access::absent;
  std::string text;
};

/// `names` are the directory's entries in alphabetical order; empty unless `access` is `present`.
struct Listing {
  Access access = Access::absent;
  std::vector<std::string> names;
};

/// A system below a root directory. All paths are relative to that root, without a leading slash.
class System_tree {
 public:
  explicit System_tree(std::filesystem::path root) : root_(std::move(root)) {}

  /// Whether the root is "/".
  bool is_this_machine() const { return root_.lexically_normal() == "/"; }

  /// Whether there is something other than a directory, such as a file or a device.
  bool has_file(const std::string& path) const;

  /// Read a regular file. Anything else in its place, and a loop of links, is `unreadable`.
  Reading read(const std::string& path) const;

  Listing list(const std::string& path) const;

  /// The last part of what a symbolic link points to, which need not exist; nothing if there is no
  /// such link.
  std::optional<std::string> link_name(const std::string& path) const;

 private:
  struct Place {
    Access access;
    std::filesystem::path path;
  };
  Place locate(const std::string& path, bool follow_last) const;

  std::filesystem::path root_;
};

/// The parts of `text` between `separator`s, empty ones included; views into `text`.
std::vector<std::string_view> split(std::string_view text, char separator);

/// `text` without white space and NUL bytes at its ends.
std::string_view trim(std::string_view text);

/// Whether `word` is one of the words of `text`, which single blanks separate.
bool has_word(std::string_view text, std::string_view word);

/// The decimal number at the start of `text`; nothing if there is none or it passes 64 bits.
std::optional<std::uint64_t> leading_number(std::string_view text);

/// What a file says, made fit for a line on a terminal: its first 80 bytes, trimmed and harmless.
std::string shown(std::string_view text);

}  // namespace kestrelctl::doctor
