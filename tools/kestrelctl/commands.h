// SPDX-License-Identifier: GPL-3.0-or-later
//
// The subcommands, each with what its options say. Every one returns an exit status, writes its
// result to standard output, and throws for what main() then reports on standard error.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kestrelctl/kestrel_program.h"
#include "kestrelctl/store.h"

namespace kestrelctl {

namespace exit_status {
inline constexpr int success = 0;
inline constexpr int failure = 1;
inline constexpr int ambiguous = 3;
inline constexpr int not_found = 4;
inline constexpr int usage = 64;
}  // namespace exit_status

using Paths = std::vector<std::filesystem::path>;

struct Stations_options {
  Paths files;
  Store store;
  std::string filter;  ///< part of a name, without case and accents
  std::string sort = "name";
  std::string form;  ///< "json", "csv", else the table
  bool is_long = false;
};
/// Status `not_found` if there is nothing to list.
int list_stations_command(const Stations_options& options);

struct Play_options {
  std::string name;
  Paths files;
  std::string block;  ///< empty: any
  std::optional<int> level;
  bool is_dry_run = false;
  Kestrel kestrel;
};
/// Status `ambiguous` for a name that several stations share, `not_found` for one that none has.
int play_command(const Play_options& options);

struct Watch_options {
  std::chrono::milliseconds every{10'000};
  std::string what = "-D";  ///< kestrel's option
  bool is_json = false;
  unsigned runs = 0;  ///< end after so many; 0: with Ctrl-C
  Kestrel kestrel;
};
int watch_command(const Watch_options& options);

struct Report_options {
  Paths files;
  Store store;
  std::string output = "report.html";  ///< "-": standard output
};
int report_command(const Report_options& options);

struct Frequencies_options {
  Paths files;
  Store store;
  std::string output = "-";
};
int frequencies_command(const Frequencies_options& options);

}  // namespace kestrelctl
