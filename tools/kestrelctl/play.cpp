// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl stations` and `kestrelctl play`: from scan files to a list, and from a name to a run.
#include <algorithm>
#include <iostream>
#include <iterator>

#include "kestrelctl/commands.h"
#include "kestrelctl/stations.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

/// kestrel printed what this says, and ended with status 0 all the same.
constexpr std::string_view failures[]{"Could not tune to frequency", "Could not start service",
                                      "Illegal value for volume"};

int play(const Station& station, const Play_options& options) {
  if (const auto obstacle = station.obstacle(); kestrel_command(station).empty()) {
    std::cerr << "kestrelctl: " << station.name << " cannot be played: " << obstacle << '\n';
    return exit_status::failure;
  }
  std::vector<std::string> arguments{
      "-f", std::to_string(station.index),        "-e", std::to_string(station.service_id),
      "-c", std::to_string(station.component_id), "-p"};
  auto command = "sudo " + options.kestrel.program;
  for (const auto& argument : arguments) command += " " + argument;
  if (options.level) {
    const auto level = std::to_string(*options.level);
    arguments.insert(arguments.end(), {"-l", level});
    command += " -l " + level;
  }
  if (options.is_dry_run) {
    std::cout << command << '\n';
    return exit_status::success;
  }
  std::cout << station.name << ", block " << station.block << ": " << command << '\n' << std::flush;
  Stop_signals stop;
  const auto report = run_kestrel(options.kestrel, arguments, stop);
  std::cout << report;
  const auto is_said = [&report](std::string_view message) {
    return report.find(message) != std::string::npos;
  };
  if (!report.empty() && std::ranges::none_of(failures, is_said)) return exit_status::success;
  std::cerr << "kestrelctl: it does not play; does the receiver have the frequency list that the "
               "scan was made with?\n";
  return exit_status::failure;
}

}  // namespace

int play_command(const Play_options& options) {
  auto stations = list_stations(read_scans(options.files));
  std::erase_if(stations, [&options](const Station& station) {
    return !options.block.empty() && fold(station.block) != fold(options.block);
  });
  auto found = find_stations(stations, options.name);
  if (found.size() == 1) return play(found.front(), options);
  const auto name = make_harmless(options.name);
  if (found.empty()) {
    std::cerr << "kestrelctl: no station is called '" << name
              << "'; kestrelctl stations lists them\n";
    return exit_status::not_found;
  }
  sort_stations(found, "name");
  std::cerr << "kestrelctl: '" << name << "' can be any of these:\n";
  write_table(std::cerr, found);
  return exit_status::ambiguous;
}

}  // namespace kestrelctl
