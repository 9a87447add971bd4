// SPDX-License-Identifier: GPL-3.0-or-later
//
// A frequency list file with any content. Input: the file.
#include <sys/mman.h>

#include "cli/frequency_list_file.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Constant_board board(fuzz::content);
  const int file = memfd_create("frequencies", MFD_CLOEXEC);
  fuzz::require(write(file, data, size) == static_cast<ssize_t>(size), "a file in memory");
  auto path = "/proc/self/fd/" + std::to_string(file);
  const auto result = load_freq_list_from_file(path.data());
  (void)close(file);

  const auto sent = sim::commands();
  fuzz::require(sent.size() == (result == 0 ? 1U : 0U), "a list is sent once or refused");
  for (const auto& frame : sent) {
    fuzz::require(frame[1] <= 48 && frame.size() == 4 + 4U * frame[1], "a list that fits");
    for (std::size_t at = 4; at < frame.size(); at += 4) {
      const auto khz = frame[at] | frame[at + 1] << 8 | frame[at + 2] << 16;
      fuzz::require(khz >= 10'000 && khz <= 1'000'000 && frame[at + 3] == 0, "values in range");
    }
  }
  return 0;
}
