// SPDX-License-Identifier: GPL-3.0-or-later
//
// kestrelctl, a companion of kestrel: it reads what kestrel writes, and runs kestrel. This file has
// its command line.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>

#include "kestrelctl/commands.h"
#include "kestrelctl/doctor.h"
#include "kestrelctl/stations.h"

namespace {

using namespace kestrelctl;
namespace fs = std::filesystem;

constexpr const char* newest =
    "scan files; without any the stored scans, or the newest ensemblescan_*.json here";

/// A subcommand, and what to do if it is given.
using Command = std::pair<CLI::App*, std::function<int()>>;

void add_kestrel(CLI::App& command, Kestrel& kestrel) {
  command.add_option("--kestrel", kestrel.program, "the kestrel to run")
      ->envname("KESTREL")
      ->capture_default_str();
  command.add_option("--lock", kestrel.lock_file, "the file that keeps two kestrel apart")
      ->capture_default_str();
}

void add_state(CLI::App& command, Store& store) {
  command
      .add_option_function<std::string>(
          "--state", [&store](const std::string& directory) { store = Store(directory); },
          "the directory of scans and settings")
      ->envname("KESTREL_STATE");
}

Command add_stations(CLI::App& app) {
  auto options = std::make_shared<Stations_options>();
  auto* command = app.add_subcommand("stations", "List the stations of scan files");
  command->add_option("FILE", options->files, newest);
  add_state(*command, options->store);
  command->add_option("-f,--filter", options->filter, "only names that contain this");
  command->add_option("-s,--sort", options->sort, "what to sort by")
      ->check(CLI::IsMember(sort_keys()))
      ->capture_default_str();
  command->add_flag("--long", options->is_long, "with the ids");
  auto* json = command->add_flag_callback(
      "--json", [options] { options->form = "json"; }, "write JSON");
  command
      ->add_flag_callback(
          "--csv", [options] { options->form = "csv"; }, "write CSV")
      ->excludes(json);
  return {command, [options] { return list_stations_command(*options); }};
}

Command add_play(CLI::App& app) {
  auto options = std::make_shared<Play_options>();
  auto* command = app.add_subcommand("play", "Tune and play a station by its name");
  command->add_option("NAME", options->name, "the name, its beginning, or a part of it")
      ->required();
  command->add_option("FILE", options->files, newest);
  command->add_option("-b,--block", options->block, "only on this block, 12C for one");
  command->add_option("-l,--level", options->level, "the volume")->check(CLI::Range(0, 63));
  command->add_flag("-n,--dry-run", options->is_dry_run, "print the command instead");
  add_kestrel(*command, options->kestrel);
  return {command, [options] { return play_command(*options); }};
}

Command add_watch(CLI::App& app) {
  auto options = std::make_shared<Watch_options>();
  auto seconds = std::make_shared<double>(10);
  auto* command =
      app.add_subcommand("watch", "Show the station's text, and then its changes, until Ctrl-C");
  command->add_option("-e,--every", *seconds, "seconds between two looks")
      ->check(CLI::Range(0.1, 86400.0))
      ->check([](const std::string& given) {  // which takes "nan" for in the range
        return std::isnan(std::strtod(given.c_str(), nullptr)) ? "is no number" : "";
      })
      ->capture_default_str();
  auto* subjects = command->add_option_group("subject");
  subjects->add_flag_callback(
      "--fm", [options] { options->what = "-r"; }, "FM reception and RDS instead");
  subjects->add_flag_callback(
      "--reception", [options] { options->what = "-d"; }, "DAB reception instead");
  subjects->require_option(0, 1);
  command->add_flag("--json", options->is_json, "one JSON object a line");
  command->add_option("--count", options->runs, "end after so many looks");
  add_kestrel(*command, options->kestrel);
  return {command, [options, seconds] {
            options->every = std::chrono::milliseconds(static_cast<long>(*seconds * 1000));
            return watch_command(*options);
          }};
}

Command add_report(CLI::App& app) {
  auto options = std::make_shared<Report_options>();
  auto* command = app.add_subcommand("report", "Write scan files as a page for a browser");
  command->add_option("FILE", options->files, newest);
  add_state(*command, options->store);
  command->add_option("-o,--output", options->output, "the page; - for standard output")
      ->capture_default_str();
  return {command, [options] { return report_command(*options); }};
}

Command add_frequencies(CLI::App& app) {
  auto options = std::make_shared<Frequencies_options>();
  auto* command =
      app.add_subcommand("frequencies", "Write a list for kestrel -y of the blocks with a signal");
  command->add_option("FILE", options->files, newest);
  add_state(*command, options->store);
  command->add_option("-o,--output", options->output, "the list; - for standard output")
      ->capture_default_str();
  return {command, [options] { return frequencies_command(*options); }};
}

Command add_doctor(CLI::App& app) {
  auto root = std::make_shared<fs::path>("/");
  auto* command = app.add_subcommand("doctor", "Look for what keeps kestrel from working here");
  command->add_option("--root", *root, "the directory of another system to look at")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
  return {command, [root] { return run_doctor(*root, std::cout); }};
}

/// What is printed must not get into a file that is opened later, the lock for one.
void fill_standard_streams() {
  int descriptor = 0;
  do {
    descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) (void)close(descriptor);
}

int run(int argc, char** argv) {
  CLI::App app("Companion of kestrel: stations by name, reports, and what is wrong with a board",
               "kestrelctl");
  app.set_version_flag("-V,--version", "kestrelctl " KESTREL_VERSION);
  app.require_subcommand(1);
  const std::vector<Command> commands{add_stations(app), add_play(app),        add_watch(app),
                                      add_report(app),   add_frequencies(app), add_doctor(app)};
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exit_status::success : exit_status::usage;
  }
  for (const auto& [command, action] : commands) {
    if (command->parsed()) return action();
  }
  return exit_status::usage;
}

}  // namespace

int main(int argc, char** argv) {
  fill_standard_streams();
  // What starts us may have its children forgotten; we wait for ours.
  (void)std::signal(SIGCHLD, SIG_DFL);
  try {
    const int status = run(argc, argv);
    if (std::cout << std::flush) return status;
    std::cerr << "kestrelctl: the output could not be written\n";
    return status == exit_status::success ? exit_status::failure : status;
  } catch (const std::exception& error) {
    std::cerr << "kestrelctl: " << error.what() << '\n';
  }
  return exit_status::failure;
}
