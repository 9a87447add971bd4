// SPDX-License-Identifier: GPL-3.0-or-later
//
// What an FM station says, from any groups. Input: for each group a byte of error levels, one of
// two PIs, and blocks B to D, the upper byte first.
#include "kestrelctl/rds.h"

#include "kestrelctl/text.h"
#include "support.h"

namespace {

using namespace kestrelctl;

Rds_group take_group(fuzz::Input& input) {
  Rds_group group;
  const unsigned levels = fuzz::take_byte(input);
  for (std::size_t i = 0; i < group.errors.size(); ++i) {
    group.errors[i] = static_cast<std::uint8_t>(levels >> 2 * i & 0x03U);
  }
  group.blocks[0] = fuzz::take_byte(input) % 2 == 0 ? 0x6204 : 0xC954;
  for (auto& block : std::span(group.blocks).subspan(1)) {
    const unsigned upper = fuzz::take_byte(input);
    block = static_cast<std::uint16_t>(upper << 8 | fuzz::take_byte(input));
  }
  return group;
}

void judge(const Rds_state& state) {
  constexpr std::size_t most_characters = 64;
  for (const auto* text : {&state.ps, &state.radiotext, &state.title, &state.artist}) {
    fuzz::require(make_harmless(*text + '.') == *text + '.', "text that can be printed");
  }
  fuzz::require(decode_utf8(state.radiotext).size() <= most_characters, "RadioText with a limit");
  fuzz::require(state.radiotext.find(state.title) != std::string::npos &&
                    state.radiotext.find(state.artist) != std::string::npos,
                "title and artist are parts of the RadioText");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Rds_decoder decoder;
  for (fuzz::Input input(data, size); !input.empty();) {
    decoder.feed(take_group(input));
    judge(decoder.state());
  }
  return 0;
}
