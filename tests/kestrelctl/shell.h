// SPDX-License-Identifier: GPL-3.0-or-later
//
// Whole runs of kestrelctl-sim: a shell in a directory of the test's own, with its own board and
// state.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <span>

#include "../directory.h"

struct Shell_run {
  const char* command;
  int status;
  const char* printed;  ///< a part of it
};

class Shell : public testing::Test, protected Directory {
 protected:
  /// Have the shell run `command`, in which `ctl` is kestrelctl-sim; what it printed on both
  /// streams.
  std::string run(const std::string& command) {
    write("run", R"bash(
export KESTREL_SIM_CLOCK=virtual KESTREL_SIM_DIR="$PWD/board" KESTREL_STATE="$PWD/state"
ctl() { timeout 20 ")bash" KESTRELCTL_PROGRAM R"bash(" "$@"; }
exec >out 2>&1
)bash" + command);
    status_ = WEXITSTATUS(std::system(("cd '" + path("") + "' && bash run").c_str()));
    return content("out");
  }

  void expect_runs(std::span<const Shell_run> runs) {
    for (const auto& [command, status, expected] : runs) {
      const auto printed = run(command);
      EXPECT_EQ(status_, status) << command << '\n' << printed;
      EXPECT_NE(printed.find(expected), std::string::npos) << command << '\n' << printed;
    }
  }

  int status_ = -1;
};
