// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl frequencies`: a frequency list for kestrel -y of the blocks that a scan found alive.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <iostream>
#include <map>
#include <stdexcept>

#include "kestrelctl/commands.h"
#include "kestrelctl/files.h"
#include "kestrelctl/receiver.h"

namespace kestrelctl {

int frequencies_command(const Store& store, const Frequencies_options& options) {
  constexpr std::size_t longest_list = 48;  // what the receiver takes
  std::map<std::uint32_t, bool> has_stations;
  std::uint32_t silent_khz = 0;
  auto scans = read_scans_or_store(options.files, store);
  for (const auto& scan : scans) {
    for (const auto& block : scan.blocks) {
      if (block.khz == 0) continue;
      if (block.has_signal()) has_stations[block.khz] |= !block.services.empty();
    }
  }
  for (const auto& scan : scans) {
    for (const auto& block : scan.blocks) {
      if (block.khz != 0 && !has_stations.contains(block.khz)) silent_khz = block.khz;
    }
  }
  if (has_stations.empty()) throw std::runtime_error("no block of these scans has a signal");
  std::vector<std::uint32_t> frequencies;
  frequencies.reserve(has_stations.size() + 1);
  for (const auto& [khz, is_needed] : has_stations) frequencies.push_back(khz);
  // kestrel cannot tune index 0: it goes to a frequency that nobody misses.
  const bool has_filler = has_stations.begin()->second;
  if (has_filler) {
    frequencies.insert(frequencies.begin(), silent_khz == 0 ? frequencies.front() : silent_khz);
  }
  if (frequencies.size() > longest_list) {
    throw std::runtime_error(
        fmt::format("these are {} frequencies, and a frequency list holds {}: name fewer files",
                    frequencies.size(), longest_list));
  }
  write_output(options.output, fmt::format("{}\n", fmt::join(frequencies, "\n")), scans);
  std::cerr << fmt::format("kestrelctl: {} with a signal", has_stations.size())
            << (has_filler ? fmt::format("; {} kHz only fills index 0, which kestrel cannot tune",
                                         frequencies.front())
                           : "")
            << '\n';
  return exit_status::success;
}

}  // namespace kestrelctl
