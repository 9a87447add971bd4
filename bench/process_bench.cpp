// SPDX-License-Identifier: GPL-3.0-or-later
//
// process_bench <kestrel> <kestrel-sim> <i2cdetect> <gpiodetect>
//
// Start, end and peak memory of whole processes: runs without options, beside two small tools of
// the same trade that print their version. kestrel-sim's run ends right after its first frame,
// kestrel's at its message that there is no board.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <string>

#include "bench/table.h"

extern char** environ;

namespace {

struct Program {
  std::string path;
  std::string option;  ///< empty: none
  double best_ms = std::numeric_limits<double>::max();
  double peak_mb = 0;
};

void run(Program& program, const posix_spawn_file_actions_t& silence) {
  const std::array arguments{program.path.data(),
                             program.option.empty() ? nullptr : program.option.data(),
                             static_cast<char*>(nullptr)};
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  int status = 0;
  rusage usage{};
  if (posix_spawn(&child, program.path.c_str(), &silence, nullptr, arguments.data(), environ) !=
          0 ||
      wait4(child, &status, 0, &usage) != child || !WIFEXITED(status)) {
    std::fprintf(stderr, "process_bench: cannot run %s\n", program.path.c_str());
    std::exit(1);
  }
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  program.best_ms = std::min(program.best_ms, took.count());
  program.peak_mb = std::max(program.peak_mb, static_cast<double>(usage.ru_maxrss) / 1024);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 1;
  std::array<Program, 4> programs{Program{argv[1], ""}, Program{argv[2], ""},
                                  Program{argv[3], "-V"}, Program{argv[4], "--version"}};
  posix_spawn_file_actions_t silence;
  posix_spawn_file_actions_init(&silence);
  posix_spawn_file_actions_addopen(&silence, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&silence, 2, "/dev/null", O_WRONLY, 0);
  for (int round = 0; round < 200; ++round) {
    for (auto& program : programs) run(program, silence);
  }
  const auto& [kestrel, sim, i2cdetect, gpiodetect] = programs;
  row("Run without options; `i2cdetect -V`", kestrel.best_ms, i2cdetect.best_ms, "ms", "+ 2 ms");
  row("Run without options; `gpiodetect --version`", kestrel.best_ms, gpiodetect.best_ms, "ms");
  row("Run without options, simulated board; `i2cdetect -V`", sim.best_ms, i2cdetect.best_ms, "ms",
      "+ 2 ms");
  row("Peak memory of such a run; `i2cdetect -V`", kestrel.peak_mb, i2cdetect.peak_mb, "MB",
      "6 MB");
  row("Peak memory of such a run; `gpiodetect --version`", kestrel.peak_mb, gpiodetect.peak_mb,
      "MB");
  row("Peak memory, simulated board; `i2cdetect -V`", sim.peak_mb, i2cdetect.peak_mb, "MB", "6 MB");
}
