// SPDX-License-Identifier: GPL-3.0-or-later
//
// The record of a run as an oscilloscope on the board would show it: library
// calls that move a pin or take time, and chip-select frames with the bytes
// both ways. The board writes it, tests read it, the trace file prints it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "sim/clock.h"

namespace sim {

/// A library call, or one chip-select period with the bytes both ways.
struct Event {
  Time at{};                                ///< simulated time at its beginning
  std::string text = "frame";               ///< a call's name and numbers, the last often in words
  std::vector<std::uint8_t> sent = {};      ///< frames: MOSI, whole
  std::vector<std::uint8_t> received = {};  ///< frames: MISO, as long as `sent`

  bool is_frame() const { return text == "frame"; }
};

/// Short stable text of an event, for expectations in tests: "init", "fsel 23 out",
/// "pud 7 up", "gpio 23 low", "bit_order msb", "cs_polarity 0 low", "delay_ms 200",
/// "frame 01 00 1f" (the bytes sent, all of them; those received are not in the text).
std::string to_string(const Event& event);

/// Seconds with nanoseconds, such as "0.200001024".
std::string seconds(Time time);

/// The readable trace of a run.
class Trace {
 public:
  /// Begin the file anew. An empty path: nothing is traced. A file that cannot be
  /// written is named on standard error, once.
  explicit Trace(const std::filesystem::path& path);

  void event(const Event& event);
  void violation(Time at, const std::string& text) { line(at, "! " + text); }
  void summary(Time at, Time waited, Time on_wire, std::uint64_t wire_bytes);

 private:
  struct Closer {
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
  };

  void line(Time at, const std::string& text);

  std::unique_ptr<std::FILE, Closer> file_;
  std::uint64_t delays_ = 0;
  std::uint64_t frames_ = 0;
};

}  // namespace sim
