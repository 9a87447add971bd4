// SPDX-License-Identifier: GPL-3.0-or-later
//
// The subcommands, each with what its options say. Every one returns an exit status, writes its
// result to standard output, and throws for what main() then reports on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kestrelctl/store.h"

namespace kestrelctl {

// -- At the board, as root ---------------------------------------------------

struct Scan_options {
  bool is_fm = false;
  std::string list;  ///< a frequency list file; empty: the receiver's own list
  std::vector<std::pair<std::size_t, std::string>> location;  ///< index of the question, answer
};
int scan_command(Store& store, const Scan_options& options);

struct Play_options {
  std::vector<std::string> words;  ///< the name, or the number of a preset
  bool plays_last = false;
  std::optional<double> fm_mhz;
  Paths files;  ///< scans to look in; without any the store's
  Station_filter filter;
  std::optional<int> volume;
  bool is_dry_run = false;
};
int play_command(Store& store, const Play_options& options);
int step_command(Store& store, int step);  ///< next (1) and previous (-1)
int stop_command(Store& store);
int off_command(Store& store);

/// `change` is empty, a level such as "40", or a step such as "+5".
int volume_command(Store& store, const std::string& change);
int status_command(Store& store, bool is_json);

struct Watch_options {
  std::optional<std::chrono::milliseconds> every;
  bool is_meter = false;
  bool is_json = false;
  unsigned count = 0;  ///< end after that many looks; 0: with Ctrl-C
};
int watch_command(Store& store, const Watch_options& options);

struct Serve_options {
  std::string listen = "127.0.0.1:8468";
  std::string token_file;  ///< empty: everybody who can connect may press the buttons
};
int serve_command(Store& store, const Serve_options& options);

struct Log_options {
  std::optional<std::chrono::milliseconds> every;  ///< between samples 10 s, between surveys 0
  bool is_survey = false;
  std::string list;           ///< of a survey, a frequency list file; empty: the scans' blocks
  unsigned count = 0;         ///< end after that many samples, or rounds of a survey; 0: never
  std::string output = "-";   ///< for the rows; "-": standard output
  std::string textfile;       ///< empty: none
  std::string mqtt_url;       ///< empty: no broker
  std::string password_file;  ///< of the broker's user
  std::string ca_file;        ///< of the broker's authority
  std::string site;           ///< empty: the host's name
};
int log_command(Store& store, const Log_options& options);

// -- On the store and on files -----------------------------------------------

int list_presets_command(const Store& store);
int set_preset_command(Store& store, unsigned number, const Play_options& station);
int remove_preset_command(Store& store, unsigned number);

struct Stations_options {
  Paths files;
  std::string filter;  ///< part of a name, without case and accents
  std::string sort = "name";
  bool is_json = false;
  bool is_csv = false;
  bool has_ids = false;
};
int list_stations_command(const Store& store, const Stations_options& options);

/// Of what is made of scans.
struct Output_options {
  Paths files;
  std::string output = "-";  ///< "-": standard output
};
int report_command(const Store& store, const Output_options& options);
int frequencies_command(const Store& store, const Output_options& options);
/// A frequency list file, as kestrel -y takes it: one frequency in kHz per line, 1 to 48 of them.
/// Throws Failure.
std::vector<std::uint32_t> read_frequency_list(const std::filesystem::path& path);

}  // namespace kestrelctl
