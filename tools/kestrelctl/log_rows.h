// SPDX-License-Identifier: GPL-3.0-or-later
//
// The rows of the log, and the file that they are appended to: JSON Lines, one write per row.
// docs/monitoring.md describes them.
#pragma once

#include <fmt/format.h>

#include <iostream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kestrelctl/now_json.h"

namespace kestrelctl {

/// One object of the log.
using Row = Json;
/// What the rows mean: a new number whenever a key changes its meaning.
inline constexpr int row_schema = 1;

/// Says once on standard error what is wrong with one thing, and that it works again.
class Trouble {
 public:
  /// `name` is harmless.
  explicit Trouble(std::string name) : name_(std::move(name)) {}
  void report(const std::string& why) {
    if (why != std::exchange(why_, why))
      std::cerr << fmt::format("kestrelctl: {}: {}\n", name_, why);
  }
  void heal() {
    if (!std::exchange(why_, {}).empty())
      std::cerr << fmt::format("kestrelctl: {}: works again\n", name_);
  }
  [[nodiscard]] bool is_there() const { return !why_.empty(); }

 private:
  std::string name_;
  std::string why_;
};

/// Kind "sample": what the radio does, with the keys of `status --json`.
Row sample_row(const std::string& site, const Now& now);

/// What a survey finds on the blocks, compared with what it found there last.
class Survey {
 public:
  explicit Survey(std::string site) : site_(std::move(site)) {}

  /// The rows of one visit. The first is of kind "detection", also of a block without a signal; a
  /// row "appeared" or "disappeared" follows for the ensemble, and for each service of it that the
  /// service list before did not have, or had. `found` has the services, if the list was received.
  std::vector<Row> visit(const Visit& visit, const Block& found);

 private:
  struct Memory {
    bool has_ensemble = false;
    std::map<std::uint32_t, std::string> services;  ///< of the last list, names by id
  };

  std::string site_;
  std::map<std::uint32_t, Memory> blocks_;  ///< by kHz
};

/// A file that rows are appended to. It is opened with the first row, and again after a failure.
class Row_file {
 public:
  /// "-" is standard output.
  explicit Row_file(std::string name) : name_(std::move(name)) {}
  ~Row_file() { close(); }
  Row_file(const Row_file&) = delete;
  Row_file& operator=(const Row_file&) = delete;
  Row_file(Row_file&&) = delete;
  Row_file& operator=(Row_file&&) = delete;

  /// Appends `row`; of a sample, what the station says only if the row before did not say it.
  /// A last line that was left unfinished is ended first. Throws std::system_error; nothing of the
  /// row is in the file then, unless it cannot be cut.
  void append(Row row);
  /// The next row opens the file anew, which somebody may have moved away.
  void close();

 private:
  void open();

  std::string name_;
  int descriptor_ = -1;
  bool is_line_open_ = false;
  Row said_;  ///< the texts of the last sample
};

}  // namespace kestrelctl
