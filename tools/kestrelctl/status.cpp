// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the radio does, in one look (`status`) or in many (`watch`).
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <utility>

#include "kestrelctl/commands.h"
#include "kestrelctl/now_json.h"
#include "kestrelctl/radio.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::pair<std::string, std::string>>;

void add_rds(Lines& lines, const Rds_state& rds) {
  if (rds.pi) lines.emplace_back("PI", fmt::format("{:04X}", *rds.pi));
  if (rds.pty) lines.emplace_back("Type", programme_type_name(*rds.pty, true));
  if (rds.tp.value_or(false)) {
    lines.emplace_back("Traffic", rds.ta.value_or(false) ? "announcement" : "announced here");
  }
  std::string others;
  for (const auto khz : rds.alternatives_khz) {
    others += (others.empty() ? "" : ", ") + describe_frequency(khz);
  }
  if (!others.empty()) lines.emplace_back("Also on", others);
}

/// What is known, a label and a value each, in the order in which people ask.
Lines describe_lines(const Now& now) {
  Lines lines;
  const auto& reception = now.reception;
  const bool is_fm = reception.firmware == Firmware::fm;
  const auto add = [&lines](const char* label, std::string value) {
    if (!value.empty()) lines.emplace_back(label, std::move(value));
  };
  add("Firmware", is_fm ? "FM" : reception.firmware == Firmware::dab ? "DAB" : "another one");
  add("Station", now.station ? now.station->name : is_fm ? now.rds.name() : "");
  add("Tuned to", reception.khz == 0 ? "nothing" : describe_frequency(reception.khz));
  if (reception.khz == 0) {
    // Without a tune there are no figures.
  } else if (is_fm) {
    add("Signal",
        fmt::format("{} dBuV, SNR {} dB, multipath {} %{}", reception.rssi_dbuv, reception.snr_db,
                    reception.multipath, reception.is_received ? "" : ", not a station"));
    add_rds(lines, now.rds);
  } else {
    add("Signal", fmt::format("{} dBuV, SNR {} dB, FIC quality {} %{}{}", reception.rssi_dbuv,
                              reception.snr_db, reception.fic_quality,
                              reception.is_received ? "" : ", no ensemble",
                              reception.is_muted ? ", muted" : ""));
  }
  add("Volume", fmt::format("{}{}", now.volume, now.is_silent ? ", stopped" : ""));
  add("Title", now.text.title);
  add("Artist", now.text.artist);
  add("Text", now.text.text);
  add("Time", now.broadcast_time);
  return lines;
}

std::string local_time() { return fmt::format("{:%H:%M:%S}", fmt::localtime(std::time(nullptr))); }

/// One line that is written over and over, for the hand that turns an antenna.
class Meter {
 public:
  void show(const Reception& reception) {
    if (reception.khz == 0) throw Failure("Nothing is tuned.", exit_status::no_reception);
    constexpr int width = 30;
    constexpr int full_scale_dbuv = 75;  // next to a transmitter
    peak_dbuv_ = std::max(peak_dbuv_, reception.rssi_dbuv);
    const auto length = [=](int dbuv) {
      return std::clamp(dbuv * width / full_scale_dbuv, 0, width);
    };
    auto bar = std::string(static_cast<std::size_t>(length(reception.rssi_dbuv)), '#');
    bar.resize(width, '.');
    if (const auto peak = length(peak_dbuv_); peak > 0)
      bar[static_cast<std::size_t>(peak - 1)] = '|';
    const auto quality = reception.firmware == Firmware::fm
                             ? fmt::format("multipath {:>3} %", reception.multipath)
                             : fmt::format("FIC {:>3} %", reception.fic_quality);
    fmt::print(std::cout, "{}[{}] {:>3} dBuV  SNR {:>2} dB  {}  peak {} dBuV{}",
               is_terminal_ ? "\r\x1b[K" : "", bar, reception.rssi_dbuv, reception.snr_db, quality,
               peak_dbuv_, is_terminal_ ? "" : "\n");
    std::cout << std::flush;
  }
  void finish() const {
    if (is_terminal_) std::cout << std::endl;
  }

 private:
  bool is_terminal_ = isatty(STDOUT_FILENO) != 0;
  int peak_dbuv_ = -128;
};

/// Text as it changes, each with the local time; the station in front when that has changed.
class Changes {
 public:
  void show(const Now& now) {
    const auto& reception = now.reception;
    auto heading = reception.firmware == Firmware::off ? "The receiver is off"
                   : reception.khz == 0                ? "Nothing is tuned"
                   : now.station
                       ? fmt::format("{}, {}", now.station->name, describe_frequency(reception.khz))
                       : describe_frequency(reception.khz);
    if (reception.khz != 0 && !reception.is_received) heading += ", no signal";
    if (heading != heading_) print(heading_ = heading);
    const auto said = [&] {
      if (now.text.text.empty()) return text_.empty() ? "" : std::string("(text cleared)");
      return now.text.text;
    }();
    if (now.text.text != text_) print("  " + said);
    text_ = now.text.text;
    const auto tagged = now.text.artist.empty() || now.text.title.empty()
                            ? now.text.artist + now.text.title
                            : now.text.artist + ": " + now.text.title;
    if (tagged != tagged_ && !tagged.empty()) print("  > " + tagged);
    tagged_ = tagged;
  }

 private:
  static void print(const std::string& line) {
    fmt::print(std::cout, "{}  {}\n", local_time(), line);
    std::cout << std::flush;
  }

  std::string heading_, text_, tagged_;
};

}  // namespace

int status_command(Store& store, bool is_json) {
  const auto now = Radio(store).look();
  if (is_json) {
    std::cout << describe_as_json(now).dump(2) << '\n';
  } else if (now.reception.firmware == Firmware::off) {
    std::cout << "The receiver is off.\n";
  } else {
    for (const auto& [label, value] : describe_lines(now)) {
      fmt::print(std::cout, "{:<10} {}\n", label, value);
    }
  }
  return exit_status::success;
}

int watch_command(Store& store, const Watch_options& options) {
  Radio radio(store);
  Changes changes;
  std::string trouble;
  Meter meter;
  const auto look = [&] {
    if (options.is_meter) return meter.show(Receiver().reception());
    for (const auto& now : split_by_text(radio.look())) {
      if (!options.is_json) {
        changes.show(now);
      } else {
        std::cout << describe_as_json(now).dump() << std::endl;
      }
    }
  };
  const auto every = options.every.value_or(options.is_meter ? 150ms : 1000ms);
  for (unsigned looks = 1;; ++looks) {
    try {
      look();
      trouble.clear();
    } catch (const Stopped&) {
      break;
    } catch (const Failure& failure) {
      // At first it is a mistake; later it is something to tell once, and to wait for its end.
      if (looks == 1) throw;
      if (trouble != failure.what()) std::cerr << "kestrelctl: " << failure.what() << '\n';
      trouble = failure.what();
    }
    if (looks == options.count || !std::cout || !pause(every)) break;
  }
  if (options.is_meter) meter.finish();
  return exit_status::success;
}

}  // namespace kestrelctl
