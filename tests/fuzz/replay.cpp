// SPDX-License-Identifier: GPL-3.0-or-later
//
// Judges each file in the directories of the command line: inputs that once failed are tried by
// every build, without libFuzzer. Exit status 1 when there was none.
#include <fstream>
#include <iterator>

#include "support.h"

int main(int argc, char** argv) {
  std::vector<fuzz::Bytes> inputs;
  for (auto* const directory : std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      std::ifstream file(entry.path(), std::ios::binary);
      inputs.emplace_back(std::istreambuf_iterator(file), std::istreambuf_iterator<char>());
    }
  }
  for (const auto& input : inputs) (void)LLVMFuzzerTestOneInput(input.data(), input.size());
  return inputs.empty() ? 1 : 0;
}
