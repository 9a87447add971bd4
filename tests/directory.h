// SPDX-License-Identifier: GPL-3.0-or-later
//
// A directory of a test's own, which goes with the test, and the files in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class Directory {
 public:
  Directory() {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~Directory() {
    std::filesystem::current_path(before_);
    std::filesystem::remove_all(path_);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  /// Make it the current directory for as long as it is there.
  void enter() const { std::filesystem::current_path(path_); }
  [[nodiscard]] std::string path(const std::string& name) const { return path_ + '/' + name; }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
  }
  /// The whole file; nothing if there is none.
  [[nodiscard]] std::string content(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(path(name)).rdbuf();
    return text.str();
  }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "kestrel_test_XXXXXX";
  std::filesystem::path before_ = std::filesystem::current_path();
};
