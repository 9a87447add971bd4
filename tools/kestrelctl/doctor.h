// SPDX-License-Identifier: GPL-3.0-or-later
//
// kestrelctl doctor: what a machine lacks for kestrel, told before kestrel stumbles over it. It
// reads files and changes nothing, so that it may run as any user and on the mounted card of
// another board.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace kestrelctl {

enum class Severity { ok, warning, failure };

/// What one check found. The text is one printable line, whatever the examined files hold; for a
/// warning and a failure it ends with what to change.
struct Finding {
  Severity severity;
  std::string subject;
  std::string text;
};

/// Run every check on the system whose root directory is `root`; "/" is this machine. Files that
/// are missing, unreadable or nonsense become findings, never errors; nothing outside `root` is
/// read.
/// @return the findings in the order of the checks, at least one for each check that applies.
std::vector<Finding> examine(const std::filesystem::path& root);

/// Check the system below `root` ("/" for this machine) for what kestrel needs, read-only: writes a
/// line for each finding to `out`, then one that sums up.
/// @return 0: all well, 1: warnings, 2: kestrel will not work.
int run_doctor(const std::filesystem::path& root, std::ostream& out);

}  // namespace kestrelctl
