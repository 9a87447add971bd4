// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/frequency_list_file.h"

#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <span>
#include <sstream>
#include <string>

#include "si468x/dab_tuning.h"

namespace {

constexpr std::size_t line_buffer_bytes = 20;  // a line of 19 characters and its end

// Every line that is read to its end takes at most so many bytes, and one line more than the list
// holds refuses the file: nothing beyond these bytes can change the outcome, however long the file
// is.
constexpr std::size_t text_limit = (dab_freq_list_limit + 1) * line_buffer_bytes;

constexpr long lowest_khz = 10'000;
constexpr long highest_khz = 1'000'000;

/// Each line is flushed: it stands before whatever the run does next.
void say(const auto&... parts) { (std::cout << ... << parts) << std::endl; }

std::int16_t refuse(const char* message) {
  say(message);
  return -1;
}

/// The beginning of the file as a text stream; nothing when it cannot be opened or read.
std::optional<std::istringstream> read_text(const char* path) {
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) return std::nullopt;
  std::string text(text_limit, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (file.bad()) return std::nullopt;  // a directory opens, but does not read
  text.resize(static_cast<std::size_t>(file.gcount()));
  return std::istringstream(text);
}

}  // namespace

std::int16_t load_freq_list_from_file(const char* path) {
  auto text = read_text(path);
  if (!text) return refuse("Frequency file does not exist");

  std::array<unsigned int, dab_freq_list_limit> list{};
  unsigned char count = 0;
  std::array<char, line_buffer_bytes> line{};
  while (text->getline(line.data(), line.size(), '\n')) {
    const long khz = std::strtol(line.data(), nullptr, 10);
    if (khz < lowest_khz || khz > highest_khz) {
      return refuse("Frequency out of bounds. Frequency should be given in kHZ");
    }
    if (count == list.size()) {
      return refuse("Too many frequencies. The frequency list holds 48 at the most");
    }
    list[count++] = static_cast<unsigned int>(khz);
  }

  for (const auto khz : std::span(list).first(count)) {
    say("Added frequency to frequency list: ", khz);
  }
  if (Si468x_DAB_set_freq_list(list.data(), count) != 0) {
    return refuse("Error setting frequency list.");
  }
  say("Sent new frequency list to the Si468x.");
  return 0;
}
