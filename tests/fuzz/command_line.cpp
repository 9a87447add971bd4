// SPDX-License-Identifier: GPL-3.0-or-later
//
// The parser of the command line. Input: the arguments, zeros between them.
#include <cerrno>
#include <cstring>
#include <functional>

#include "cli/options.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(data, data + size);
  std::string program = "kestrel";
  std::vector<char*> argv{program.data()};
  for (std::size_t at = 0; at < text.size(); at += std::strlen(&text[at]) + 1) {
    // argp's own --HANG sleeps for as long as it says.
    if (std::strncmp(&text[at], "--H", 3) == 0) return 0;
    argv.push_back(&text[at]);
  }
  const auto argc = static_cast<int>(argv.size());
  argv.push_back(nullptr);

  // argp's own --program-name stores its argument, which is gone after this input.
  auto* const name = program_invocation_name;
  auto* const short_name = program_invocation_short_name;
  arguments given;
  (void)argp_parse(&argp, argc, argv.data(), ARGP_NO_EXIT | ARGP_NO_ERRS, nullptr, &given);
  program_invocation_name = name;
  program_invocation_short_name = short_name;

  fuzz::require(given.volume == 30 || given.volume_given == 1, "a level only with -l");
  fuzz::require(given.firmware == 'D' || given.boot == 1, "a firmware only with -b");
  fuzz::require(given.i2s_out == 0 || given.i2s_given == 1, "an output only with -o");
  const auto* const path = given.frequency_list_file;
  const std::less_equal<> is_not_after;
  const bool is_argument = is_not_after(text.data(), path) && is_not_after(path, &text[size]);
  fuzz::require(given.frequency_list == 1 ? is_argument : std::strcmp(path, "-") == 0,
                "the file name is the argument itself");
  return 0;
}
