// SPDX-License-Identifier: GPL-3.0-or-later
//
// The receiver in the user's words, on kestrel's driver. A Receiver is one short session: it has
// the board to itself while it exists, and lets go of it in between, so that several programs can
// share one radio. Nothing else in kestrelctl touches the board or waits, and every wait ends with
// a stop signal.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "kestrelctl/dynamic_label.h"
#include "kestrelctl/rds.h"
#include "kestrelctl/stations.h"

class Ensemble_list;

namespace kestrelctl {

/// What the process ends with.
namespace exit_status {
inline constexpr int success = 0;
inline constexpr int failure = 1;
inline constexpr int ambiguous = 3;     ///< several stations have the name
inline constexpr int not_found = 4;     ///< none has
inline constexpr int no_reception = 5;  ///< the station cannot be received or played here
inline constexpr int usage = 64;
inline constexpr int stopped = 130;  ///< by Ctrl-C or another stop signal
}  // namespace exit_status

/// What was asked for did not happen: one sentence that says why, and the exit status.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& sentence, int status = exit_status::failure)
      : std::runtime_error(sentence), status_(status) {}
  [[nodiscard]] int status() const { return status_; }

 private:
  int status_;
};

/// A stop signal came while something was waited for.
class Stopped : public Failure {
 public:
  Stopped() : Failure("stopped", exit_status::stopped) {}
};

/// From now on SIGINT, SIGTERM, SIGQUIT and SIGHUP end every wait at once, and nothing else; a
/// closed pipe ends nothing.
void catch_stop_signals();
/// Has one of them come?
bool is_stopped();
/// Wait that long on the board's clock; false as soon as a stop signal has come.
bool pause(std::chrono::milliseconds time);

enum class Firmware { off, dab, fm, other };

/// How well the tuned frequency is received. Without a firmware that runs, all zero.
struct Reception {
  Firmware firmware = Firmware::off;
  std::uint32_t khz = 0;
  int rssi_dbuv = 0;
  int snr_db = 0;
  int cnr_db = 0;            ///< DAB
  int fic_quality = 0;       ///< DAB, percent
  unsigned fib_errors = 0;   ///< DAB, since the tune
  int multipath = 0;         ///< FM, percent
  bool is_received = false;  ///< DAB: an ensemble is acquired; FM: the channel is valid
  bool is_muted = false;     ///< DAB: the audio is muted for want of a signal
};

/// What a scan found on one frequency.
struct Visit {
  bool has_ensemble = false;  ///< with a service list
  bool has_signal = false;
  std::uint32_t khz = 0;
  int rssi_dbuv = 0;
  unsigned services = 0;
  unsigned list_version = 0;
};

/// The text of a service, and whose it is: the packets say so.
struct Service_text {
  std::uint32_t service_id = 0;
  std::uint32_t component_id = 0;
  Dynamic_label label;
};

/// What an FM station says, and the group that was taken last.
struct Station_rds {
  Rds_decoder decoder;
  Rds_group last;

  /// RadioText in the terms of a dynamic label.
  [[nodiscard]] Label_state label() const {
    const auto& state = decoder.state();
    return {.text = state.radiotext, .title = state.title, .artist = state.artist};
  }
};

class Receiver {
 public:
  /// Waits until no other program uses the board, and opens it. Throws Failure: not root, SPI
  /// switched off, another kestrel at work for too long, registers that cannot be mapped.
  Receiver();
  ~Receiver();
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;
  Receiver(Receiver&&) = delete;
  Receiver& operator=(Receiver&&) = delete;

  // Each of these throws Failure with what the receiver did not do, and Stopped after a stop
  // signal.

  /// The firmware that runs.
  Firmware firmware();
  /// Boot `wanted` unless it runs, and set the volume (0 to 63) after a boot. Was it booted?
  bool ensure_firmware(Firmware wanted, int volume);

  /// Tune a DAB station and start it. Its frequency is looked up in the receiver's own list; if it
  /// is not there, `scanned_khz`, the list with which the station was found, becomes the
  /// receiver's. An ensemble has 2.5 s to appear, and its service list 10 s. DAB must run.
  void play_dab(const Station& station, std::span<const std::uint32_t> scanned_khz);
  /// Tune to `khz`. FM must run.
  void tune_fm(std::uint32_t khz);
  /// Seek the next FM station upwards or downwards; true when the search came past the band's end.
  bool seek_fm(bool upwards);

  /// Stop a DAB service.
  void stop_dab(const Station& station);
  /// Hold the receiver in reset. The session is over with it.
  void power_down();

  int volume();                 ///< 0 to 63
  void set_volume(int volume);  ///< 0 to 63

  Reception reception();
  /// The time that the ensemble transmits, in UTC; nothing before it is known.
  std::optional<std::chrono::sys_seconds> ensemble_time();
  /// Take every data packet that waits in the receiver's queue; of another service than the one
  /// before it, they begin the text anew. What the label became, one after the other.
  std::vector<Label_state> drain_text(Service_text& text);
  /// Take every RDS group that waits, and switch the decoder on if it is off. What RadioText
  /// became, one after the other.
  std::vector<Label_state> drain_rds(Station_rds& rds);

  /// The receiver's frequency list in kHz.
  std::vector<std::uint32_t> frequencies();
  /// Replace it, until the next boot, by at most 48 others. DAB must run.
  void set_frequencies(std::vector<std::uint32_t> khz);
  /// Tune to `index` of it, give an ensemble time for its service list, and store what is found in
  /// `ensembles`.
  Visit visit(Ensemble_list& ensembles, std::uint8_t index);

 private:
  /// The board's device node: open and locked for as long as the session lasts.
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> board_;
  bool is_open_ = false;
};

}  // namespace kestrelctl
