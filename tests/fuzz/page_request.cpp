// SPDX-License-Identifier: GPL-3.0-or-later
//
// A request to the page's server. Input: a letter for the path, then the body.
#include "kestrelctl/serve_rules.h"
#include "support.h"

namespace {

void judge(const kestrelctl::Station_reference& station) {
  fuzz::require(station.khz >= 1 && station.khz <= 1'000'000, "a frequency in range");
  fuzz::require(station.is_fm == (station.service_id == 0), "FM is what has no service");
  fuzz::require(station.name.empty(), "no name from the network");
}

void judge(unsigned preset) {
  fuzz::require(preset >= 1 && preset <= kestrelctl::highest_preset, "a preset in range");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::array paths{"/api/play", "/api/volume", "/api/stop", "/api/preset"};
  fuzz::Input input(data, size);
  const auto* path = paths.at(fuzz::take_byte(input) % paths.size());
  const std::string body(input.begin(), input.end());
  try {
    const auto wish = kestrelctl::parse_request(path, body);
    if (const auto* play = std::get_if<kestrelctl::Play_wish>(&wish)) {
      std::visit([](const auto& what) { judge(what); }, play->what);
    } else if (const auto* volume = std::get_if<kestrelctl::Volume_wish>(&wish)) {
      fuzz::require(volume->volume >= 0 && volume->volume <= 63, "a volume in range");
    } else if (const auto* preset = std::get_if<kestrelctl::Preset_wish>(&wish)) {
      judge(preset->number);
      if (preset->station) judge(*preset->station);
    }
  } catch (const kestrelctl::Bad_request& refusal) {
    const std::string_view sentence = refusal.what();
    fuzz::require(!sentence.empty() && sentence.back() == '.', "a sentence");
  }
  return 0;
}
