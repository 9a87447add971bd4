// SPDX-License-Identifier: GPL-3.0-or-later
//
// Runs kestrel, one at a time: two at once would mix their bytes on SPI0.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "kestrelctl/stop_signals.h"

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

/// Runs `kestrel` with `arguments`, without standard input, when no other run that this program
/// knows of is under way; after a second of waiting for one it says so on standard error. The lock
/// is the run's own too, whatever becomes of us. Returns what it printed behind its banner; empty
/// if `stop` ended the waiting. Throws Cannot_run: not as root, no such program, no lock file, a
/// run that ended badly or not at all, or one that did not get as far as to do what it was asked
/// for.
std::string run_kestrel(const Kestrel& kestrel, const std::vector<std::string>& arguments,
                        Stop_signals& stop);

}  // namespace kestrelctl
