// SPDX-License-Identifier: GPL-3.0-or-later
//
// kestrelctl, the radio for every day. This file has its command line.
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>

#include "kestrelctl/commands.h"
#include "kestrelctl/doctor.h"
#include "kestrelctl/receiver.h"
#include "kestrelctl/text.h"

namespace {

using namespace kestrelctl;

constexpr std::size_t longest_given_answer = 200;  // characters of up to two bytes, of 400

/// For doctor: what the receiver says, or why it does not.
std::string ask_receiver() {
  constexpr const char* sentences[]{"answers; it is off", "answers; DAB firmware runs",
                                    "answers; FM firmware runs", "answers; a firmware runs"};
  return sentences[static_cast<std::size_t>(Receiver().firmware())];
}

/// The subcommand that was given leaves here what it is to do.
using Action = std::function<int(Store&)>;

/// Adds a subcommand without options.
CLI::App* add(CLI::App& app, Action& action, const char* name, const char* description,
              Action act) {
  auto* command = app.add_subcommand(name, description);
  command->callback([&action, act = std::move(act)] { action = act; });
  return command;
}

/// Adds a subcommand with a copy of `Options` for its options to fill, and `act` to run with them.
template <class Options, class Act>
std::pair<CLI::App*, Options*> add(CLI::App& app, Action& action, const char* name,
                                   const char* description, Act act) {
  const auto options = std::make_shared<Options>();
  const auto act_on_options = [options, act](Store& store) { return act(store, *options); };
  return {add(app, action, name, description, act_on_options), options.get()};
}

/// Adds an option that sets `value`; the help calls its argument `argument`.
template <class Value>
CLI::Option* add_option(CLI::App& command, const char* names, const std::string& argument,
                        Value& value, const char* description) {
  return command.add_option(names, value, description)->option_text(argument);
}

/// A number that has to be one; "nan" is in every range.
CLI::Validator number_in(double lowest, double highest) {
  return CLI::Range(lowest, highest) &
         CLI::Validator(
             [](const std::string& given) {
               return std::isnan(std::strtod(given.c_str(), nullptr)) ? "is not a number" : "";
             },
             "");
}

CLI::Option* add_list(CLI::App& command, std::string& list) {
  return add_option(command, "--frequency-list,-y", "FILE", list,
                    "the frequencies of this file, one per line in kHz, instead of all blocks");
}

void add_scan_files(CLI::App& command, Paths& files) {
  add_option(command, "FILE", "...", files,
             "scan files; without any what kestrelctl scan has found");
}

void add_every(CLI::App& command, std::optional<std::chrono::milliseconds>& every,
               double least_seconds, const char* description) {
  const auto set = [&every](double seconds) {
    every = std::chrono::milliseconds(std::lround(seconds * 1000));
  };
  command.add_option_function<double>("--every", set, description)
      ->check(number_in(least_seconds, 86400))
      ->option_text("SECONDS");
}

/// What says which station, for `play` and `preset set`.
void add_station(CLI::App& command, Play_options& options) {
  add_option(command, "NAME", "...", options.words,
             "the name, a part of it, or the number of a preset");
  command.add_flag("--last", options.plays_last, "what was played last");
  add_option(command, "--fm", "MHZ", options.fm_mhz, "an FM frequency in MHz, for example 98.5")
      ->check(number_in(64, 108));
  add_option(command, "--file", "FILE", options.files, "look in this scan file");
  add_option(command, "--block", "BLOCK", options.filter.block,
             "only on this block, for example 12C");
  add_option(command, "--service", "ID", options.filter.service_id,
             "only the service with this id");
}

void check_station(const Play_options& options) {
  const int ways =
      (options.words.empty() ? 0 : 1) + (options.plays_last ? 1 : 0) + (options.fm_mhz ? 1 : 0);
  if (ways != 1) throw Failure("Which station? Say a NAME, --last or --fm MHZ", exit_status::usage);
}

void add_scan(CLI::App& app, Action& action) {
  auto [command, options] = add<Scan_options>(
      app, action, "scan", "Look for stations, and keep what is found", scan_command);
  command->add_flag("--fm", options->is_fm, "in the FM band")
      ->excludes(add_list(*command, options->list));
  for (std::size_t i = 0; i < location_questions.size(); ++i) {
    auto name = "--" + fold(location_questions.at(i).name);
    std::ranges::replace(name, ' ', '-');
    const auto keep_answer = [options = options, i](const std::string& answer) {
      if (answer.size() > longest_given_answer) throw CLI::ValidationError("is too long");
      options->location.emplace_back(i, answer);
    };
    command
        ->add_option_function<std::string>(
            name, keep_answer,
            i == 0 ? "where the antenna is; what is not given is as last time" : "")
        ->option_text("TEXT");
  }
}

void add_play(CLI::App& app, Action& action) {
  const auto play = [](Store& store, const Play_options& given) {
    check_station(given);
    return play_command(store, given);
  };
  auto [command, options] = add<Play_options>(app, action, "play", "Play a station", play);
  add_station(*command, *options);
  add_option(*command, "--volume", "LEVEL", options->volume, "from now on, 0 to 63")
      ->check(CLI::Range(0, 63));
  command->add_flag("--dry-run", options->is_dry_run, "print kestrel's command instead");
}

void add_watch(CLI::App& app, Action& action) {
  auto [command, options] = add<Watch_options>(
      app, action, "watch", "Show the station's text as it changes, until Ctrl-C", watch_command);
  add_every(*command, options->every, 0.05, "seconds between two looks; 1, with --meter 0.15");
  command->add_flag("--meter", options->is_meter, "the signal instead, for aiming an antenna");
  command->add_flag("--json", options->is_json, "one JSON object per look and line");
  add_option(*command, "--count", "NUMBER", options->count, "end after that many looks");
}

void add_log(CLI::App& app, Action& action) {
  auto [command, options] = add<Log_options>(
      app, action, "log", "Write down what is received, for as long as it runs", log_command);
  add_every(*command, options->every, 0.1,
            "between two samples, 10 if not given, or between two surveys, 0");
  auto* survey = command->add_flag("--survey", options->is_survey,
                                   "step through the blocks instead, for ever");
  add_list(*command, options->list)->needs(survey);
  add_option(*command, "--count", "NUMBER", options->count,
             "end after that many samples or surveys");
  add_option(*command, "--output,-o", "FILE", options->output,
             "append the rows to this file; printed if not given");
  add_option(*command, "--textfile", "FILE", options->textfile,
             "metrics for Prometheus' node_exporter");
  auto* url = add_option(*command, "--mqtt", "URL", options->mqtt_url,
                         "a broker: mqtt[s]://[USER@]HOST[:PORT][/PREFIX]");
  add_option(*command, "--mqtt-password-file", "FILE", options->password_file,
             "with the user's password")
      ->needs(url);
  add_option(*command, "--mqtt-ca-file", "FILE", options->ca_file, "the broker's authority")
      ->needs(url);
  add_option(*command, "--site", "NAME", options->site, "where this is, if not the host's name");
}

void add_serve(CLI::App& app, Action& action) {
  auto [command, options] = add<Serve_options>(
      app, action, "serve", "Be a page for the phone, until Ctrl-C", serve_command);
  add_option(*command, "--listen", "ADDRESS:PORT", options->listen,
             "where to listen, instead of 127.0.0.1:8468");
  add_option(*command, "--token-file", "FILE", options->token_file,
             "with what the page asks for; other addresses need it");
}

void add_radio_commands(CLI::App& app, Action& action) {
  add_scan(app, action);
  add_play(app, action);
  add(app, action, "next", "Play the next preset, or without presets station",
      [](Store& store) { return step_command(store, 1); });
  add(app, action, "previous", "Play the preset or station before",
      [](Store& store) { return step_command(store, -1); });
  auto [volume, change] =
      add<std::string>(app, action, "volume", "Print or set the volume", volume_command);
  add_option(*volume, "LEVEL", " ", *change, "0 to 63, or a step: +5, -5");
  auto [status, is_json] = add<bool>(
      app, action, "status", "Show what plays, and how well it is received", status_command);
  status->add_flag("--json", *is_json, "as JSON");
  add_watch(app, action);
  add_log(app, action);
  add(app, action, "stop", "Stop the station; the receiver stays on", stop_command);
  add(app, action, "off", "Switch the receiver off", off_command);
  add_serve(app, action);
}

void add_preset(CLI::App& app, Action& action) {
  auto* preset = app.add_subcommand("preset", "List, set or remove presets");
  preset->require_subcommand(0, 1);
  preset->callback([&action, preset] {
    if (preset->get_subcommands().empty()) action = list_presets_command;
  });
  using Numbered = std::pair<unsigned, Play_options>;
  const auto set_preset = [](Store& store, const Numbered& given) {
    check_station(given.second);
    return set_preset_command(store, given.first, given.second);
  };
  auto [set, options] =
      add<Numbered>(*preset, action, "set", "Keep a station under a number", set_preset);
  add_option(*set, "NUMBER", " ", options->first, "1 to 999")
      ->required()
      ->check(CLI::Range(1, 999));
  add_station(*set, options->second);
  auto [remove, number] =
      add<unsigned>(*preset, action, "remove", "Forget a preset", remove_preset_command);
  add_option(*remove, "NUMBER", " ", *number, "the preset's")->required();
}

void add_file_commands(CLI::App& app, Action& action) {
  auto [stations, choice] = add<Stations_options>(
      app, action, "stations", "List the stations that were found", list_stations_command);
  add_scan_files(*stations, choice->files);
  add_option(*stations, "--filter", "TEXT", choice->filter, "only names that contain this");
  add_option(*stations, "--sort", fmt::format("{}", fmt::join(sort_keys(), "|")), choice->sort,
             "what to sort by")
      ->check(CLI::IsMember(sort_keys()));
  stations->add_flag("--long", choice->has_ids, "with the ids");
  stations->add_flag("--json", choice->is_json, "as JSON")
      ->excludes(stations->add_flag("--csv", choice->is_csv, "as CSV"));

  auto [report, page] = add<Output_options>(app, action, "report",
                                            "Write scans as a page for a browser", report_command);
  page->output = "report.html";
  add_scan_files(*report, page->files);
  add_option(*report, "--output,-o", "FILE", page->output,
             "the page, report.html if not given; - prints it");

  auto [frequencies, list] = add<Output_options>(
      app, action, "frequencies", "Write a list for kestrel -y of the blocks with a signal",
      frequencies_command);
  add_scan_files(*frequencies, list->files);
  add_option(*frequencies, "--output,-o", "FILE", list->output, "the list; printed if not given");

  add(app, action, "doctor", "Look for what keeps the receiver from working here",
      [](Store&) { return run_doctor("/", ask_receiver, std::cout); });
}

/// For a word that is not a subcommand: the nearest ones.
void suggest_command(const CLI::App& app) {
  if (!app.get_subcommands().empty() || app.remaining_size() == 0) return;
  std::vector<std::string> names;
  for (const auto* command : app.get_subcommands({})) names.push_back(command->get_name());
  const auto nearest = find_nearest(names, app.remaining().front());
  if (!nearest.empty()) fmt::print(stderr, "Do you mean {}?\n", fmt::join(nearest, ", "));
}

/// What is printed must not get into a file that is opened later, such as a memory device.
void fill_standard_streams() {
  int descriptor = 0;
  do {
    descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) (void)close(descriptor);
}

int run(int argc, char** argv) {
  CLI::App app("The radio for every day: scan, play by name, presets, text, signal", "kestrelctl");
  app.set_version_flag("--version,-V", "kestrelctl " KESTREL_VERSION);
  app.require_subcommand(1);
  app.get_formatter()->column_width(26);
  std::string state = Store::default_directory;
  add_option(app, "--state", "DIRECTORY", state,
             "where presets and scans are kept, instead of /var/lib/kestrel ($KESTREL_STATE)")
      ->envname("KESTREL_STATE");
  Action action;
  add_radio_commands(app, action);
  add_preset(app, action);
  add_file_commands(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) == 0) return exit_status::success;
    suggest_command(app);
    return exit_status::usage;
  }
  Store store(state);
  catch_stop_signals();
  return action(store);
}

}  // namespace

int main(int argc, char** argv) {
  fill_standard_streams();
  try {
    const int status = run(argc, argv);
    if (std::cout << std::flush) return status;
    // A reader that has seen enough knows that it ended.
    pollfd output{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    const bool has_left = poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
    if (!has_left) std::cerr << "kestrelctl: the output could not be written\n";
    return status == exit_status::success ? exit_status::failure : status;
  } catch (const Stopped& stopped) {
    return stopped.status();
  } catch (const Failure& failure) {
    std::cerr << "kestrelctl: " << failure.what() << '\n';
    return failure.status();
  } catch (const std::exception& error) {
    std::cerr << "kestrelctl: " << error.what() << '\n';
  }
  return exit_status::failure;
}
