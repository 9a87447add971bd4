// SPDX-License-Identifier: GPL-3.0-or-later
//
// kestrelctl, the radio for every day. This file has its command line.
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>

#include "kestrelctl/commands.h"
#include "kestrelctl/doctor.h"
#include "kestrelctl/receiver.h"

namespace {

using namespace kestrelctl;

constexpr std::size_t longest_given_answer = 200;  // characters of up to two bytes, of 400
constexpr const char* scan_files = "scan files; without any what kestrelctl scan has found";

/// For doctor: what the receiver says, or why it does not.
std::string ask_receiver() {
  constexpr const char* sentences[]{"answers; it is off", "answers; DAB firmware runs",
                                    "answers; FM firmware runs", "answers; a firmware runs"};
  return sentences[static_cast<std::size_t>(Receiver().firmware())];
}

/// The subcommand that was given leaves here what it is to do.
using Action = std::function<int(Store&)>;

/// Adds a subcommand with a copy of `Options` for its options to fill, and `act` to run with them.
template <class Options, class Act>
std::pair<CLI::App*, Options*> add(CLI::App& app, Action& action, const char* name,
                                   const char* description, Act act) {
  auto options = std::make_shared<Options>();
  auto* command = app.add_subcommand(name, description);
  command->callback([&action, options, act] {
    action = [options, act](Store& store) { return act(store, *options); };
  });
  return {command, options.get()};
}
struct Nothing {};

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
  return command
      .add_option("--frequency-list,-y", list,
                  "the frequencies of this file, one per line in kHz, instead of all blocks")
      ->option_text("FILE");
}

/// What says which station, for `play` and `preset set`.
void add_station(CLI::App& command, Play_options& options) {
  command.add_option("NAME", options.words, "the name, a part of it, or the number of a preset")
      ->option_text("...");
  command.add_flag("--last", options.plays_last, "what was played last");
  command.add_option("--fm", options.fm_mhz, "an FM frequency in MHz, for example 98.5")
      ->check(number_in(64, 108))
      ->option_text("MHZ");
  command.add_option("--file", options.files, "look in this scan file")->option_text("FILE");
  command.add_option("--block", options.filter.block, "only on this block, for example 12C")
      ->option_text("BLOCK");
  command.add_option("--service", options.filter.service_id, "only the service with this id")
      ->option_text("ID");
}

void check_station(const Play_options& options) {
  const int ways =
      (options.words.empty() ? 0 : 1) + (options.plays_last ? 1 : 0) + (options.fm_mhz ? 1 : 0);
  if (ways != 1) throw Failure("Which station? Say a NAME, --last or --fm MHZ", exit_status::usage);
}

void add_log(CLI::App& app, Action& action) {
  auto [command, options] = add<Log_options>(
      app, action, "log", "Write down what is received, for as long as it runs", log_command);
  command
      ->add_option_function<double>(
          "--every",
          [options = options](double seconds) {
            options->every = std::chrono::milliseconds(std::lround(seconds * 1000));
          },
          "between two samples, 10 if not given, or between two surveys, 0")
      ->check(number_in(0.1, 86400))
      ->option_text("SECONDS");
  auto* survey = command->add_flag("--survey", options->is_survey,
                                   "step through the blocks instead, for ever");
  add_list(*command, options->list)->needs(survey);
  command->add_option("--count", options->count, "end after that many samples or surveys")
      ->option_text("NUMBER");
  command
      ->add_option("--output,-o", options->output,
                   "append the rows to this file; printed if not given")
      ->option_text("FILE");
  command->add_option("--textfile", options->textfile, "metrics for Prometheus' node_exporter")
      ->option_text("FILE");
  auto* url = command
                  ->add_option("--mqtt", options->mqtt_url,
                               "a broker: mqtt[s]://[USER@]HOST[:PORT][/PREFIX]")
                  ->option_text("URL");
  command->add_option("--mqtt-password-file", options->password_file, "with the user's password")
      ->needs(url)
      ->option_text("FILE");
  command->add_option("--mqtt-ca-file", options->ca_file, "the broker's authority")
      ->needs(url)
      ->option_text("FILE");
  command->add_option("--site", options->site, "where this is, if not the host's name")
      ->option_text("NAME");
}

void add_radio_commands(CLI::App& app, Action& action) {
  {
    auto [command, options] = add<Scan_options>(
        app, action, "scan", "Look for stations, and keep what is found", scan_command);
    command->add_flag("--fm", options->is_fm, "in the FM band")
        ->excludes(add_list(*command, options->list));
    for (std::size_t i = 0; i < location_questions.size(); ++i) {
      std::string name(location_questions.at(i).name);
      std::ranges::transform(name, name.begin(), [](char c) {
        return c == ' ' ? '-' : static_cast<char>(std::tolower(c));
      });
      command
          ->add_option_function<std::string>(
              "--" + name,
              [options = options, i](const std::string& answer) {
                if (answer.size() > longest_given_answer) throw CLI::ValidationError("is too long");
                options->location.emplace_back(i, answer);
              },
              i == 0 ? "where the antenna is; what is not given is as last time" : "")
          ->option_text("TEXT");
    }
  }
  {
    auto [command, options] = add<Play_options>(app, action, "play", "Play a station",
                                                [](Store& store, const Play_options& given) {
                                                  check_station(given);
                                                  return play_command(store, given);
                                                });
    add_station(*command, *options);
    command->add_option("--volume", options->volume, "from now on, 0 to 63")
        ->check(CLI::Range(0, 63))
        ->option_text("LEVEL");
    command->add_flag("--dry-run", options->is_dry_run, "print kestrel's command instead");
  }
  add<Nothing>(app, action, "next", "Play the next preset, or without presets station",
               [](Store& store, Nothing) { return step_command(store, 1); });
  add<Nothing>(app, action, "previous", "Play the preset or station before",
               [](Store& store, Nothing) { return step_command(store, -1); });
  {
    auto [command, change] =
        add<std::string>(app, action, "volume", "Print or set the volume", volume_command);
    command->add_option("LEVEL", *change, "0 to 63, or a step: +5, -5")->option_text(" ");
  }
  {
    auto [command, is_json] = add<bool>(
        app, action, "status", "Show what plays, and how well it is received", status_command);
    command->add_flag("--json", *is_json, "as JSON");
  }
  {
    auto [command, options] = add<Watch_options>(
        app, action, "watch", "Show the station's text as it changes, until Ctrl-C", watch_command);
    command
        ->add_option_function<double>(
            "--every",
            [options = options](double seconds) {
              options->every = std::chrono::milliseconds(std::lround(seconds * 1000));
            },
            "seconds between two looks; 1, with --meter 0.15")
        ->check(number_in(0.05, 86400))
        ->option_text("SECONDS");
    command->add_flag("--meter", options->is_meter, "the signal instead, for aiming an antenna");
    command->add_flag("--json", options->is_json, "one JSON object per look and line");
    command->add_option("--count", options->count, "end after that many looks")
        ->option_text("NUMBER");
  }
  add_log(app, action);
  add<Nothing>(app, action, "stop", "Stop the station; the receiver stays on",
               [](Store& store, Nothing) { return stop_command(store); });
  add<Nothing>(app, action, "off", "Switch the receiver off",
               [](Store& store, Nothing) { return off_command(store); });
}

void add_serve(CLI::App& app, Action& action) {
  auto [command, options] = add<Serve_options>(
      app, action, "serve", "Be a page for the phone, until Ctrl-C", serve_command);
  command->add_option("--listen", options->listen, "where to listen, instead of 127.0.0.1:8468")
      ->option_text("ADDRESS:PORT");
  command
      ->add_option("--token-file", options->token_file,
                   "with what the page asks for; other addresses need it")
      ->option_text("FILE");
}

void add_preset(CLI::App& app, Action& action) {
  auto* preset = app.add_subcommand("preset", "List, set or remove presets");
  preset->require_subcommand(0, 1);
  preset->callback([&action, preset] {
    if (preset->get_subcommands().empty()) action = list_presets_command;
  });
  using Numbered = std::pair<unsigned, Play_options>;
  auto [set, options] = add<Numbered>(*preset, action, "set", "Keep a station under a number",
                                      [](Store& store, const Numbered& given) {
                                        check_station(given.second);
                                        return set_preset_command(store, given.first, given.second);
                                      });
  set->add_option("NUMBER", options->first, "1 to 999")
      ->required()
      ->check(CLI::Range(1, 999))
      ->option_text(" ");
  add_station(*set, options->second);
  auto [remove, number] =
      add<unsigned>(*preset, action, "remove", "Forget a preset", remove_preset_command);
  remove->add_option("NUMBER", *number, "the preset's")->required()->option_text(" ");
}

void add_file_commands(CLI::App& app, Action& action) {
  {
    auto [command, options] = add<Stations_options>(
        app, action, "stations", "List the stations that were found", list_stations_command);
    command->add_option("FILE", options->files, scan_files)->option_text("...");
    command->add_option("--filter", options->filter, "only names that contain this")
        ->option_text("TEXT");
    command->add_option("--sort", options->sort, "what to sort by")
        ->check(CLI::IsMember(sort_keys()))
        ->option_text(fmt::format("{}", fmt::join(sort_keys(), "|")));
    command->add_flag("--long", options->has_ids, "with the ids");
    command->add_flag("--json", options->is_json, "as JSON")
        ->excludes(command->add_flag("--csv", options->is_csv, "as CSV"));
  }
  {
    auto [command, options] = add<Report_options>(
        app, action, "report", "Write scans as a page for a browser", report_command);
    command->add_option("FILE", options->files, scan_files)->option_text("...");
    command
        ->add_option("--output,-o", options->output,
                     "the page, report.html if not given; - prints it")
        ->option_text("FILE");
  }
  {
    auto [command, options] = add<Frequencies_options>(
        app, action, "frequencies", "Write a list for kestrel -y of the blocks with a signal",
        frequencies_command);
    command->add_option("FILE", options->files, scan_files)->option_text("...");
    command->add_option("--output,-o", options->output, "the list; printed if not given")
        ->option_text("FILE");
  }
  add<Nothing>(app, action, "doctor", "Look for what keeps the receiver from working here",
               [](Store&, Nothing) { return run_doctor("/", ask_receiver, std::cout); });
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
  app.add_option("--state", state,
                 "where presets and scans are kept, instead of /var/lib/kestrel ($KESTREL_STATE)")
      ->envname("KESTREL_STATE")
      ->option_text("DIRECTORY");
  Action action;
  add_radio_commands(app, action);
  add_serve(app, action);
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
