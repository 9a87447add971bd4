// SPDX-License-Identifier: GPL-3.0-or-later
//
// `kestrelctl frequencies`: a frequency list for kestrel -y of the blocks that a scan found alive;
// and how such a file is read.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "kestrelctl/commands.h"
#include "kestrelctl/files.h"
#include "kestrelctl/receiver.h"
#include "kestrelctl/text.h"

namespace kestrelctl {

std::vector<std::uint32_t> read_frequency_list(const std::filesystem::path& path) {
  constexpr std::size_t most_bytes = 4096;
  constexpr std::uint32_t lowest_khz = 10'000;
  constexpr std::uint32_t highest_khz = 1'000'000;
  const auto name = make_harmless(path.string());
  const auto text = read_file(path, most_bytes);
  if (!text) throw Failure(name + " cannot be read");
  std::vector<std::uint32_t> list;
  std::istringstream lines(*text);
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with('\r')) line.pop_back();
    std::uint32_t khz = 0;
    const auto* const end = line.data() + line.size();
    const auto [rest, error] = std::from_chars(line.data(), end, khz);
    if (error != std::errc() || rest != end || khz < lowest_khz || khz > highest_khz) {
      throw Failure(fmt::format("{}: line {} is not a frequency in kHz", name, list.size() + 1));
    }
    list.push_back(khz);
    if (list.size() > longest_frequency_list) {
      throw Failure(fmt::format("{} has more than {} frequencies", name, longest_frequency_list));
    }
  }
  if (list.empty()) throw Failure(name + " is empty");
  return list;
}

int frequencies_command(const Store& store, const Output_options& options) {
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
  if (frequencies.size() > longest_frequency_list) {
    throw std::runtime_error(
        fmt::format("these are {} frequencies, and a frequency list holds {}: name fewer files",
                    frequencies.size(), longest_frequency_list));
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
