// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the fuzz targets share: how an input is taken apart, and whole runs of the
// program. An input that violates a requirement aborts, which libFuzzer and the replay both report.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "cli/run.h"
#include "si468x/bus.h"
#include "sim/board.h"
#include "sim/scripted_device.h"

/// One target: judge one input. Always 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

using Input = std::span<const std::uint8_t>;
using Bytes = std::vector<std::uint8_t>;

inline void require(bool holds, const char* what) {
  if (holds) return;
  (void)std::fprintf(stderr, "Violated: %s\n", what);
  std::abort();
}

/// Cut `bytes` bytes, or what is left, off the front of `input`.
inline Input take(Input& input, std::size_t bytes) {
  const auto front = input.first(std::min(bytes, input.size()));
  input = input.subspan(front.size());
  return front;
}
inline std::uint8_t take_byte(Input& input) {
  const auto byte = take(input, 1);
  return byte.empty() ? std::uint8_t{0} : byte[0];
}

// A record is a length byte and that many bytes: up to 127, or a multiple of 32 up to 4096, the
// most that the driver reads or writes at once.
inline constexpr std::size_t long_step = 32;
inline constexpr std::size_t short_limit = 0x7F;

inline Input take_record(Input& input) {
  const std::size_t length = take_byte(input);
  return take(input, length <= short_limit ? length : (length - short_limit) * long_step);
}

/// Status bytes of a chip that is content (clear to send, firmware running), which a reply's record
/// need not repeat.
inline constexpr std::array<std::uint8_t, 4> content{0x80, 0x00, 0x00, 0xC0};

/// Byte `i` of a reply, not counting the meaningless first one.
inline std::uint8_t reply_byte(Input record, std::size_t i) {
  if (i < record.size()) return record[i];
  return i < content.size() ? content[i] : std::uint8_t{0};
}

/// A new board, its bus set up, whose chip answers every frame with `bytes` after a first one.
class Constant_board {
 public:
  explicit Constant_board(Input bytes) {
    Bytes frame{0};
    frame.insert(frame.end(), bytes.begin(), bytes.end());
    chip_.by_default(frame);
    sim::power_on({});
    sim::attach(chip_);
    require(Si468x_bus_init() == 0, "a board in order");
  }
  ~Constant_board() { sim::power_off(); }
  Constant_board(const Constant_board&) = delete;
  Constant_board& operator=(const Constant_board&) = delete;

 private:
  sim::Scripted_device chip_;
};

/// Command lines that between them perform every action.
struct Command_line {
  bool is_dab;
  std::vector<std::string> options;
};
inline const std::vector<Command_line> command_lines{
    {true, {"-f", "33", "-e", "17333", "-c", "12", "-p", "-l", "50", "-D"}},
    {true, {"-f", "33", "-g", "-d", "-n", "-t", "-i"}},
    {true, {"-f", "11", "-g", "-d", "-j", "-t", "-o", "1"}},
    {true, {"-y", "/dev/null", "-o", "0", "-l", "64", "-p"}},
    {true, {"-u"}},
    {false, {"-F", "98500", "-r", "-i"}},
    {false, {"-x", "-r"}},
    {false, {"-X", "-d", "-D", "-k"}},
    {true, {"-b", "D", "-d"}},
};

/// The whole program, with `answers` on standard input. A scan file goes nowhere: the current
/// directory is one that is deleted already.
inline void run_program(const Command_line& line, const std::string& answers) {
  static const bool is_nowhere = [] {
    std::string name = std::filesystem::temp_directory_path() / "kestrel_fuzz_XXXXXX";
    return mkdtemp(name.data()) != nullptr && chdir(name.c_str()) == 0 && rmdir(name.c_str()) == 0;
  }();
  require(is_nowhere, "a current directory that is gone");
  std::vector<std::string> words{"kestrel"};
  words.insert(words.end(), line.options.begin(), line.options.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::istringstream typed(answers);
  auto* const terminal = std::cin.rdbuf(typed.rdbuf());
  (void)run(static_cast<int>(words.size()), argv.data());  // always 0
  std::cin.rdbuf(terminal);
}

}  // namespace fuzz
