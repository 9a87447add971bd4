// SPDX-License-Identifier: GPL-3.0-or-later
//
// The readable trace of a run: one line per event with simulated time, command
// names and bytes, the notes of the board, and a summary of where the time went.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "sim/clock.h"
#include "sim/events.h"

namespace sim {

/// Totals of a run, for the summary.
struct Totals {
  Time simulated{};
  Time waited{};
  std::uint64_t delays = 0;
  std::uint64_t frames = 0;
  std::uint64_t wire_bytes = 0;
  Time on_wire{};
};

class Trace {
 public:
  /// Begin the file anew. An empty path: nothing is traced. A file that cannot be
  /// written is named on standard error, once.
  explicit Trace(const std::filesystem::path& path);

  void event(const Event& event, std::uint64_t frame_number);
  void note(Time at, const std::string& text);
  void summary(const Totals& totals);

 private:
  struct Closer {
    void operator()(std::FILE* file) const { (void)std::fclose(file); }
  };

  void line(Time at, const std::string& text);

  std::unique_ptr<std::FILE, Closer> file_;
  std::uint64_t image_bytes_ = 0;  ///< loaded by HOST_LOAD, without its headers
};

/// Seconds with nanoseconds, such as "0.200001024".
[[nodiscard]] std::string seconds(Time time);

}  // namespace sim
