// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl log`: one sampler with three outputs, each of which can fail for a while without the
// others noticing. It looks at what plays, or surveys the blocks with the board to itself.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <iostream>
#include <sstream>
#include <system_error>

#include "kestrelctl/commands.h"
#include "kestrelctl/files.h"
#include "kestrelctl/log_mqtt.h"
#include "kestrelctl/log_rows.h"
#include "kestrelctl/log_textfile.h"
#include "kestrelctl/log_topics.h"
#include "kestrelctl/radio.h"
#include "kestrelctl/text.h"
#include "scan/ensemble_list.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

sigset_t hangup() {
  sigset_t set;
  (void)sigemptyset(&set);
  (void)sigaddset(&set, SIGHUP);
  return set;
}
/// From now on SIGHUP is not a stop signal: it waits until it is taken.
void hold_hangups() {
  const auto set = hangup();
  (void)sigprocmask(SIG_BLOCK, &set, nullptr);
}
bool take_hangup() {
  const auto set = hangup();
  constexpr timespec now{};
  return sigtimedwait(&set, nullptr, &now) == SIGHUP;
}

std::string option_of(unsigned number, const Station_reference& preset) {
  return fmt::format("{} {}", number, preset.name);
}

/// What a visit has left in `ensembles`; nothing without an ensemble.
Block read_block(Ensemble_list& ensembles, unsigned index, const Visit& visit) {
  if (!visit.has_ensemble) return {};
  ensembles.number_of_frequencies = static_cast<std::uint8_t>(index + 1);
  std::stringstream document;
  (void)ensembles.json_print_data(document);
  const auto blocks = read_scan_text(document.str()).blocks;
  const auto block = std::ranges::find(blocks, index, &Block::index);
  return block != blocks.end() ? *block : Block{};
}

class Sampler {
 public:
  Sampler(Store& store, const Log_options& options)
      : store_(store),
        options_(options),
        site_(make_harmless(options.site.empty() ? host_name() : options.site)),
        rows_(options.output),
        file_trouble_(options.output == "-" ? "standard output" : make_harmless(options.output)),
        metrics_(site_) {
    if (!options.list.empty()) list_ = read_frequency_list(options.list);
    if (options.mqtt_url.empty()) return;
    const auto address = parse_mqtt_url(options.mqtt_url);
    if (!options.password_file.empty() && address.user.empty()) {
      throw Failure("--mqtt: a password needs a user, mqtt://USER@...", exit_status::usage);
    }
    topics_ = Topics(address.prefix, site_);
    broker_.emplace(address, Mqtt_files{options.password_file, options.ca_file}, topics_.prefix(),
                    !options.is_survey);
  }

  int run() {
    for (unsigned done = 0;;) {
      try {
        options_.is_survey ? survey() : sample();
        receiver_trouble_.heal();
        ++done;
      } catch (const Stopped&) {
        break;
      } catch (const Failure& failure) {
        // By hand it is a mistake at first; a service waits for its end.
        if (done == 0 && options_.output == "-") throw;
        receiver_trouble_.report(failure.what());
        metrics_.clear();
        publish();
      } catch (const std::exception& error) {  // of the store, or of a library
        receiver_trouble_.report(error.what());
      }
      if ((options_.count != 0 && done == options_.count) || is_over_ || !wait()) break;
    }
    return is_over_ ? exit_status::failure : exit_status::success;
  }

 private:
  void sample() {
    const auto now = radio_.look();
    for (const auto& said : split_by_text(now)) put(sample_row(site_, said));
    if (!broker_) return;
    const auto presets = store_.settings().presets;
    std::vector<std::string> choices;
    std::string chosen = "None";
    for (const auto& [number, preset] : presets) {
      choices.push_back(option_of(number, preset));
      if (now.station && preset == refer_to(*now.station)) chosen = choices.back();
    }
    broker_->retain(topics_.below("preset"), chosen);
    for (const auto& [topic, payload] : topics_.announce_radio(choices)) {
      broker_->retain(topic, payload);
    }
  }

  /// One round through the blocks.
  void survey() {
    if (!board_) board_.emplace();
    try {
      (void)board_->ensure_firmware(Firmware::dab, radio_.volume());
      for (const unsigned i : choose_blocks()) {
        if (is_over_) return;
        // One for each visit: what an earlier one found on the block does not count.
        Ensemble_list ensembles;
        const auto visit = board_->visit(ensembles, static_cast<std::uint8_t>(i));
        for (const auto& row : survey_.visit(visit, read_block(ensembles, i, visit))) put(row);
        if (take_hangup()) rows_.close();
      }
    } catch (const Failure&) {
      board_.reset();
      throw;
    }
  }

  /// The indexes in the receiver's list of what is to be visited: the blocks of the list that was
  /// given, else of the scans, else all. A list that lacks one of them is replaced.
  std::vector<unsigned> choose_blocks() {
    auto list = board_->frequencies();
    auto wanted = list_.empty() ? store_.scanned_frequencies() : list_;
    if (wanted.empty()) wanted = list;
    const auto is_in = [](const auto& all) {
      return [&all](std::uint32_t khz) { return std::ranges::find(all, khz) != all.end(); };
    };
    if (!std::ranges::all_of(wanted, is_in(list))) {
      board_->set_frequencies(wanted);
      list = wanted;
    }
    std::vector<unsigned> chosen;
    for (unsigned i = 0; i < list.size(); ++i) {
      if (is_in(wanted)(list[i])) chosen.push_back(i);
    }
    return chosen;
  }

  void put(const Row& row) {
    // A survey's row of a block without a signal is for those who want the last state of it.
    if (row.value("signal", true)) {
      try {
        rows_.append(row);
        file_trouble_.heal();
      } catch (const std::system_error& error) {
        file_trouble_.report(error.code().message());
        // Nobody will ever read from it again.
        is_over_ = options_.output == "-" && error.code() == std::errc::broken_pipe &&
                   options_.textfile.empty() && !broker_;
      }
    }
    metrics_.take(row);
    publish();
    if (!broker_) return;
    for (const auto& [topic, payload] : topics_.messages_of(row)) broker_->retain(topic, payload);
    if (row["kind"] == "appeared" || row["kind"] == "disappeared") {
      broker_->send(topics_.below("change"), row.dump());
    }
  }

  /// The state of the receiver for those who ask for the last one only.
  void publish() {
    if (broker_) {
      broker_->retain(topics_.below("availability"), metrics_.is_up() ? "online" : "offline");
    }
    if (options_.textfile.empty()) return;
    try {
      (void)write_file_atomically(options_.textfile, metrics_.format());
      textfile_trouble_.heal();
    } catch (const std::runtime_error& error) {
      textfile_trouble_.report(error.what());
    }
  }

  /// Until the next sample is due, or somebody wants something done; false with a stop signal.
  bool wait() {
    constexpr milliseconds step = 200ms;
    const auto time = options_.every.value_or(options_.is_survey ? 0s : 10s);
    for (auto left = std::max<milliseconds>(time, receiver_trouble_.is_there() ? 1s : 0s);
         left > 0ms; left -= step) {
      if (take_hangup()) rows_.close();
      if (act()) return true;
      if (!pause(std::min(left, step))) return false;
    }
    if (take_hangup()) rows_.close();
    return !is_stopped();
  }

  /// Do what came over MQTT; was there anything?
  bool act() {
    const auto command = broker_ ? broker_->take_command() : std::nullopt;
    if (!command) return false;
    const auto& [what, payload] = *command;
    try {
      unsigned number = 0;
      const auto* end = payload.data() + payload.size();
      const auto parsed = std::from_chars(payload.data(), end, number);
      const auto presets = store_.settings().presets;
      const auto preset = presets.find(number);
      const bool is_number = parsed.ec == std::errc() && (parsed.ptr == end || *parsed.ptr == '.');
      if (what == "volume" && is_number && number <= highest_volume) {
        radio_.set_volume(static_cast<int>(number));
      } else if (what == "preset" && preset != presets.end() &&
                 (parsed.ptr == end || payload == option_of(number, preset->second))) {
        (void)radio_.play(station_of(store_, preset->second));
      } else {
        throw Failure(fmt::format("'{}' is not a {}", make_harmless(payload), make_harmless(what)));
      }
    } catch (const Stopped&) {
      // The next look ends the sampler.
    } catch (const std::runtime_error& error) {
      std::cerr << fmt::format("kestrelctl: mqtt command: {}\n", error.what());
    }
    return true;
  }

  Store& store_;
  const Log_options& options_;
  const std::string site_;
  std::vector<std::uint32_t> list_;  ///< kHz; empty: none was given
  Radio radio_{store_};
  std::optional<Receiver> board_;  ///< of a survey, for as long as it goes well
  Survey survey_{site_};
  Row_file rows_;
  Trouble file_trouble_;
  Metrics metrics_;
  Trouble textfile_trouble_{"metrics"};
  Trouble receiver_trouble_{"receiver"};
  Topics topics_{"", site_};
  std::optional<Broker> broker_;
  bool is_over_ = false;
};

}  // namespace

int log_command(Store& store, const Log_options& options) {
  if (options.output != "-") hold_hangups();
  return Sampler(store, options).run();
}

}  // namespace kestrelctl
