// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl frequencies`: a frequency list for kestrel -y of the blocks that a scan found alive.
#include <iostream>
#include <set>
#include <stdexcept>

#include "kestrelctl/commands.h"
#include "kestrelctl/scan_file.h"

namespace kestrelctl {

int frequencies_command(const Frequencies_options& options) {
  constexpr std::size_t longest_list = 48;  // what the receiver takes
  std::set<std::uint32_t> frequencies;
  const auto scans = read_scans(options.files);
  for (const auto& scan : scans) {
    for (const auto& block : scan.blocks) {
      if (block.has_signal() && block.khz != 0) frequencies.insert(block.khz);
    }
  }
  if (frequencies.empty()) throw std::runtime_error("no block of these scans has a signal");
  if (frequencies.size() > longest_list) {
    throw std::runtime_error("these are " + std::to_string(frequencies.size()) +
                             " frequencies, and a frequency list holds " +
                             std::to_string(longest_list) + ": name fewer files");
  }
  std::string list;
  for (const auto khz : frequencies) list += std::to_string(khz) + '\n';
  write_output(options.output, list, scans);
  std::cerr << "kestrelctl: " << frequencies.size()
            << (frequencies.size() == 1 ? " frequency" : " frequencies") << "; the first, "
            << *frequencies.begin() << " kHz, gets index 0, which kestrel scans but cannot tune\n";
  return exit_status::success;
}

}  // namespace kestrelctl
