// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/frequency_list_file.h"

#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <span>

#include "si468x/dab_tuning.h"

namespace {

constexpr std::size_t line_buffer_bytes = 20;  // a line of 19 characters and its end

constexpr long lowest_khz = 10'000;
constexpr long highest_khz = 1'000'000;

constexpr char unreadable[] = "Frequency file does not exist";

/// Each line is flushed: it is printed before the run does anything else.
void say(const auto&... parts) { (std::cout << ... << parts) << std::endl; }

std::int16_t refuse(const char* message) {
  say(message);
  return -1;
}

}  // namespace

std::int16_t load_freq_list_from_file(char* path) {
  std::ifstream file(path);
  if (!file.is_open()) return refuse(unreadable);

  std::array<unsigned int, dab_freq_list_limit> list{};
  unsigned char count = 0;
  std::array<char, line_buffer_bytes> line{};
  while (file.getline(line.data(), line.size(), '\n')) {
    const long khz = std::strtol(line.data(), nullptr, 10);
    if (khz < lowest_khz || khz > highest_khz) {
      return refuse("Frequency out of bounds. Frequency should be given in kHZ");
    }
    if (count == list.size()) {
      return refuse("Too many frequencies. The frequency list holds 48 at the most");
    }
    list[count++] = static_cast<unsigned int>(khz);
  }
  if (file.bad()) return refuse(unreadable);  // a directory opens, but does not read
  file.close();

  for (const auto khz : std::span(list).first(count)) {
    say("Added frequency to frequency list: ", khz);
  }
  if (Si468x_DAB_set_freq_list(list.data(), count) != 0) {
    return refuse("Error setting frequency list.");
  }
  say("Sent new frequency list to the Si468x.");
  return 0;
}
