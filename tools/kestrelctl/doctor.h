// SPDX-License-Identifier: GPL-3.0-or-later
//
// kestrelctl doctor: what keeps the radio from working on this machine, with the cure. It changes
// nothing: it reads what the kernel and the firmware say, and asks the receiver.
#pragma once

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <string>

namespace kestrelctl {

/// Returns one sentence on what the receiver answered; throws std::runtime_error with the reason if
/// it did not answer.
using Ask_receiver = std::function<std::string()>;

/// Check what the radio needs and write a line for each finding to `out`, then one that sums up. A
/// warning and a failure end with what to change. Files that are missing, unreadable or nonsense
/// become findings; every line is printable.
/// The system's files are looked up below `root`, which is "/" except in tests. `ask_receiver` is
/// called by root only, and not after a failure: on a board that the driver does not know, the
/// registers' addresses may be memory.
/// @return 0: all is well, 1: warnings, 2: the radio will not work.
int run_doctor(const std::filesystem::path& root, const Ask_receiver& ask_receiver,
               std::ostream& out);

}  // namespace kestrelctl
