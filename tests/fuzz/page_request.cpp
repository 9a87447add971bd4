// SPDX-License-Identifier: GPL-3.0-or-later
//
// A request to the page's server. Input: a letter for the path, then the body.
#include "kestrelctl/serve_rules.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::array paths{"/api/play", "/api/volume", "/api/stop", "/api/preset"};
  fuzz::Input input(data, size);
  const auto* path = paths.at(fuzz::take_byte(input) % paths.size());
  const std::string body(input.begin(), input.end());
  try {
    (void)kestrelctl::parse_request(path, body);
  } catch (const kestrelctl::Bad_request& refusal) {
    const std::string_view sentence = refusal.what();
    fuzz::require(!sentence.empty() && sentence.back() == '.', "a sentence");
  }
  return 0;
}
