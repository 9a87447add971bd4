// SPDX-License-Identifier: GPL-3.0-or-later
//
// The simulated board: everything on it put together, and what tests see of it. They switch it on
// with settings, hang another device on its bus, steer what is on the air, and read back what
// happened. Programs linked with the simulator need none of this: without power_on() the
// environment is read when the board is first used.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "sim/broadcast.h"
#include "sim/clock.h"
#include "sim/events.h"
#include "sim/faults.h"
#include "sim/peripherals.h"
#include "sim/receiver.h"
#include "sim/spi_device.h"

namespace sim {

/// Path on the board, such as "/dev/spidev0.0", and the file's content.
using Board_files = std::map<std::string, std::string>;

/// The files of a Raspberry Pi 4 with SPI enabled: "/dev/spidev0.0" (empty),
/// "/proc/device-tree/model" and "/proc/device-tree/soc/ranges".
Board_files default_board_files();

struct Settings {
  /// Receiver state and board files, kept between runs; made (mode 0700) when it is
  /// missing, but not its parent. Empty: nothing outlives the process.
  std::filesystem::path directory = {};
  /// The files of a new board, by path on the board.
  Board_files board_files = default_board_files();
  bool virtual_clock = true;         ///< delays take no real time
  std::filesystem::path trace = {};  ///< overwritten; empty: no trace
  std::vector<Fault> faults = {};
  bool keeps_events = true;  ///< for tests; a program that runs for years has no use for them
};

class Board {
 public:
  explicit Board(const Settings& settings);
  /// Saves the receiver's state and ends the trace.
  ~Board();
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;
  Board(Board&&) = delete;
  Board& operator=(Board&&) = delete;

  /// False when the board's directory cannot be made: there is no board then.
  bool is_usable() const { return is_usable_; }

  void log(Event event);

  /// Log what no correct host does.
  void report_violation(const std::string& what);

  /// A byte was clocked and took this long.
  void count_byte(Time duration);

  /// The device on the bus: the receiver, with its faults, unless a test attached another.
  Spi_device& device() { return *device_; }
  void attach(Spi_device& device) { device_ = &device; }

  /// See whether somebody has pulled the antenna or put it back.
  void look_at_antenna();

  /// Take the receiver as another process has left it since.
  void catch_up();

  /// Keep the receiver's state, always or if it is not the one saved last.
  void save();
  void save_if_changed();

  /// Open a file of the board by its path on the board; null when there is none.
  std::FILE* open_file(const std::string& path, const char* mode);

 private:
  Saved_state load();
  void complain(const char* what);

  const std::filesystem::path directory_;
  Board_files files_;
  bool is_usable_ = true;
  bool has_complained_ = false;
  Saved_state saved_;
  Spi_device* device_;
  Trace trace_;
  const bool keeps_events_;

 public:
  std::vector<Event> events = {};
  std::vector<std::string> violations = {};
  std::uint64_t wire_bytes = 0;
  Time on_wire{};
  Clock clock;
  Air air = default_air();
  Receiver receiver;
  Fault_injector faults;
  Peripherals peripherals;
};

/// The board that is switched on; the environment's, if none was.
Board& board();

/// Switch on a board: peripherals unmapped, the receiver as the directory's
/// state file says (without one: in reset), event log, violations and counters
/// empty, simulated time from the state file or 0, default broadcasts, no
/// attached device. The board before it is switched off first, its state saved.
void power_on(const Settings& settings);

/// Switch the board off: state saved, trace ended with its summary. The next
/// use without power_on() reads the environment again.
void power_off();

/// Hang `device` on the bus and the reset line in place of the receiver until
/// the next power_on(). The caller owns it and keeps it alive until then.
inline void attach(Spi_device& device) { board().attach(device); }

// -- What happened ----------------------------------------------------------

/// Every event since power_on(), in order, and its to_string().
inline const std::vector<Event>& events() { return board().events; }
std::vector<std::string> event_texts();

/// The bytes sent in every frame since power_on() that was not a status or reply
/// read (its first byte is not 0x00), in order.
std::vector<std::vector<std::uint8_t>> commands();

/// Forget events and violations so far; counters and time go on.
inline void clear_events() {
  board().events.clear();
  board().violations.clear();
}

/// Simulated time since the board's first power-on.
inline std::chrono::nanoseconds now() { return board().clock.now(); }

/// Sum of all delays since power_on().
inline std::chrono::nanoseconds waited() { return board().clock.waited(); }

/// Bytes clocked over SPI0 since power_on(), 1.024 us each at divider 32.
inline std::uint64_t wire_bytes() { return board().wire_bytes; }

/// What no correct host does, in plain words with simulated time: library calls out of order, FIFO
/// overruns, and every command that the receiver refused or dropped, with the reason.
inline const std::vector<std::string>& violations() { return board().violations; }

// -- Steering the world -----------------------------------------------------

/// What is on the air, free to change at any time; power_on() restores it. On a
/// board with a directory the file antenna_out decides on `has_antenna`.
inline Air& air() { return board().air; }

/// Let simulated time pass, as if the program had waited (no event is logged).
inline void pass_time(std::chrono::nanoseconds duration) { board().clock.advance(duration); }

/// Skip the loading: the receiver runs the DAB (true) or FM-HD (false) firmware
/// with its defaults, as after a boot, and the reset line is high.
void set_booted(bool dab);

/// The library's variables as they are before bcm2835_init.
void unmap_library();

}  // namespace sim
