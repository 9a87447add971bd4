// SPDX-License-Identifier: GPL-3.0-or-later
//
// Simulated time: it moves when bytes are clocked and when the program waits. With the real clock
// waits sleep as well, and time spent outside the simulator (somebody typing an answer) counts too.
#pragma once

#include <chrono>
#include <cstdint>

namespace sim {

using Time = std::chrono::nanoseconds;

class Clock {
 public:
  /// A clock that shows `now`. Virtual time transmits a fixed date, so that
  /// two runs from the same state print the same; real time transmits today's.
  Clock(bool is_virtual, Time now);
  /// Simulated time since the board was first switched on.
  Time now() const { return now_; }
  /// Time passes without the program's doing: a byte on the wire.
  void advance(Time duration);
  /// The program waits; counted in waited(). A real wait ends early when a signal's handler has
  /// run, as the library's does.
  void wait(Time duration);
  /// Sum of all wait() durations.
  Time waited() const { return waited_; }
  /// The time of day in the simulated world at `at`.
  std::chrono::sys_seconds utc(Time at) const;

 private:
  bool is_virtual_;
  Time now_;
  Time waited_{};
  Time start_;
  std::chrono::steady_clock::time_point real_start_ = std::chrono::steady_clock::now();
  std::chrono::sys_time<Time> utc_at_zero_;
};

}  // namespace sim
