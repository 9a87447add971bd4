// SPDX-License-Identifier: GPL-3.0-or-later
//
// A dynamic label, from any packets. Input: a record for each packet.
#include "kestrelctl/dynamic_label.h"

#include "support.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrelctl;
  constexpr std::size_t most_bytes_per_character = 3;
  Dynamic_label label;
  for (fuzz::Input input(data, size); !input.empty();) {
    const auto before = label.state();
    const auto change = label.feed(fuzz::take_record(input));
    const auto& [text, title, artist] = label.state();
    fuzz::require(make_harmless(text) == text, "a text that can be printed");
    fuzz::require(text.size() <= most_bytes_per_character * Dynamic_label::most_text_bytes,
                  "a text with a limit");
    fuzz::require(text.find(title) != std::string::npos && text.find(artist) != std::string::npos,
                  "title and artist are parts of the text");
    const bool is_same_text = text == before.text;
    const bool is_same = is_same_text && title == before.title && artist == before.artist;
    fuzz::require(is_same == (change == Label_change::nothing), "a change is reported");
    fuzz::require(
        is_same_text || change == (text.empty() ? Label_change::cleared : Label_change::text),
        "the change that it is");
  }
  return 0;
}
