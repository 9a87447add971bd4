// SPDX-License-Identifier: GPL-3.0-or-later
//
// Everything that one switched-on board consists of, put together. The library
// functions and the tests' interface both work on the one world there is.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/board.h"
#include "sim/board_directory.h"
#include "sim/clock.h"
#include "sim/fault_injector.h"
#include "sim/peripherals.h"
#include "sim/receiver.h"
#include "sim/trace.h"

namespace sim {

class World {
 public:
  explicit World(const Settings& settings);
  /// Saves the receiver's state and ends the trace.
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;
  World(World&&) = delete;
  World& operator=(World&&) = delete;

  /// False when the board's directory cannot be used: there is no board then.
  [[nodiscard]] bool is_usable() const { return directory_ == nullptr || directory_->is_open(); }

  void log(Event event);
  void report_misuse(const std::string& what);

  /// The device on the bus, the receiver behind its faults unless a test attached another.
  [[nodiscard]] Spi_device& device() { return *device_; }
  void attach(Spi_device& device);

  /// See whether somebody has pulled the antenna or put it back.
  void look_at_antenna();

  /// Keep the receiver's state if it is not the one saved last.
  void save_if_changed();

  [[nodiscard]] std::FILE* open_board_file(const std::string& path, const char* mode);

  [[nodiscard]] const std::vector<Event>& events() const { return events_; }
  [[nodiscard]] const std::vector<std::string>& violations() const { return violations_; }
  [[nodiscard]] std::uint64_t wire_bytes() const { return totals_.wire_bytes; }
  void clear_events();

  /// A byte was clocked and took this long.
  void count_byte(Time duration);

  [[nodiscard]] Clock& clock() { return clock_; }
  [[nodiscard]] Air& air() { return air_; }
  [[nodiscard]] Receiver& receiver() { return receiver_; }
  [[nodiscard]] Peripherals& peripherals() { return peripherals_; }
  [[nodiscard]] const Fault_injector& faults() const { return injector_; }

 private:
  [[nodiscard]] Saved_state present() const;
  [[nodiscard]] static Saved_state saved_by(const Board_directory* directory);
  [[nodiscard]] static Time time_now(const Saved_state& saved, bool is_virtual);

  std::unique_ptr<Board_directory> directory_;
  Saved_state saved_;
  Board_files files_;  ///< of a board without a directory
  Clock clock_;
  const bool keeps_events_;
  Trace trace_;
  Air air_ = default_air();
  Receiver receiver_;
  Fault_injector injector_;
  Spi_device* device_ = &injector_;
  std::vector<Event> events_;
  std::vector<std::string> violations_;
  Totals totals_;
  Peripherals peripherals_{*this, saved_.chip.reset_high};
};

/// The world that is switched on; the environment's, if none was.
[[nodiscard]] World& world();

/// The settings that the environment asks for. What it does not understand is
/// named on standard error and ignored.
[[nodiscard]] Settings settings_from_environment();

}  // namespace sim
