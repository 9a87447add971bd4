// SPDX-License-Identifier: GPL-3.0-or-later
//
// The simulated board as tests see it: switch it on with settings, hang another
// device on its bus, steer what is on the air, and read back what happened.
// Programs linked with the simulator need none of this: without power_on() the
// environment is read when the board is first used.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/broadcast.h"
#include "sim/events.h"
#include "sim/faults.h"
#include "sim/spi_device.h"

namespace sim {

/// Path on the board, such as "/dev/spidev0.0", and the file's content.
using Board_files = std::map<std::string, std::string>;

/// The files of a Raspberry Pi 4 with SPI enabled: "/dev/spidev0.0" (empty),
/// "/proc/device-tree/model" and "/proc/device-tree/soc/ranges".
[[nodiscard]] Board_files default_board_files();

struct Settings {
  /// The board's directory: chip state and board files, kept between runs. It
  /// is made (mode 0700) when it is missing; its parent must exist. Empty:
  /// nothing outlives the process.
  std::filesystem::path directory = {};

  /// Without a directory: the board's files; a path that is absent is a
  /// missing file. With a directory the files in it count, not these.
  Board_files board_files = default_board_files();

  /// Delays take no real time. False: they sleep.
  bool virtual_clock = true;

  /// File for the readable trace, overwritten; empty: no trace.
  std::filesystem::path trace = {};

  std::vector<Fault> faults = {};

  /// Keep events and violations for events() and violations().
  bool keeps_events = true;
};

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
void attach(Spi_device& device);

// -- What happened ----------------------------------------------------------

/// Every event since power_on(), in order.
[[nodiscard]] const std::vector<Event>& events();

/// to_string() of every event since power_on(), in order.
[[nodiscard]] std::vector<std::string> event_texts();

/// The bytes sent in every frame since power_on() that was no status or reply
/// read (its first byte is not 0x00), in order.
[[nodiscard]] std::vector<std::vector<std::uint8_t>> commands();

/// Forget events and violations so far; counters and time go on.
void clear_events();

/// Simulated time since the board's first power-on.
[[nodiscard]] std::chrono::nanoseconds now();

/// Sum of all delays since power_on().
[[nodiscard]] std::chrono::nanoseconds waited();

/// Bytes clocked over SPI0 since power_on(), 1.024 us each at divider 32.
[[nodiscard]] std::uint64_t wire_bytes();

/// What no correct host does, in plain words with simulated time: library calls
/// out of order, FIFO overruns, and every command that the receiver refused or
/// dropped, with the reason.
[[nodiscard]] const std::vector<std::string>& violations();

// -- Steering the world -----------------------------------------------------

/// What is on the air, free to change at any time; power_on() restores it. On a
/// board with a directory the file antenna_out decides on `has_antenna`.
[[nodiscard]] Air& air();

/// Let simulated time pass, as if the program had waited (no event is logged).
void pass_time(std::chrono::nanoseconds duration);

/// Skip the loading: the receiver runs the DAB (true) or FM-HD (false) firmware
/// with its defaults, as after a boot, and the reset line is high.
void set_booted(bool dab);

}  // namespace sim
