// SPDX-License-Identifier: GPL-3.0-or-later
//
// Runs kestrel, one at a time: two at once would mix their bytes on SPI0.
#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestrelctl {

/// A run that could not be made; the message says why.
class Cannot_run : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Which kestrel, and what keeps others from running it at the same time.
struct Kestrel {
  std::string program = "kestrel";  ///< a path, or a name that is looked for in PATH
  std::string lock_file = "/run/kestrelctl.lock";
};

/// Waits so long; false: give up waiting altogether.
using Pause = std::function<bool(std::chrono::milliseconds)>;
bool sleep_through(std::chrono::milliseconds time);

/// Runs `kestrel` with `arguments`, without standard input, when no other run that this program
/// knows of is under way; after a second of waiting for one it says so on standard error. The run
/// is left alone by the signals of the terminal. Returns what it printed behind its banner; empty
/// if `pause` gave up. Throws Cannot_run: not as root, no such program, no lock file, a run that
/// ended badly, or one that did not get as far as to do what it was asked for.
std::string run_kestrel(const Kestrel& kestrel, const std::vector<std::string>& arguments,
                        const Pause& pause = sleep_through);

}  // namespace kestrelctl
