// SPDX-License-Identifier: GPL-3.0-or-later
//
// Packets of a dynamic label: how its segments join, and what its commands say.
#include "kestrelctl/dynamic_label.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace {

using namespace kestrelctl;
using namespace std::string_literals;

// Of the changes, in their order.
constexpr std::string_view names[]{"", "text", "cleared", "item"};

/// A packet: its prefix, text or command, and the byte after it; what it changes ("text", "cleared"
/// or "item"), and the text, title and artist then.
struct Step {
  std::uint8_t first;
  std::uint8_t second;
  std::string body;
  std::string change;
  std::string trailing = "\0"s;
};

struct Run {
  const char* what;
  std::vector<Step> steps;
};

const Run runs[]{
    {"a whole label of each character set, and one that is repeated",
     {{0x80, 0x00, "K\x97ln ist heute sonnig und warm", "text:Köln ist heute sonnig und warm"},
      {0x80, 0x00, "K\x97ln ist heute sonnig und warm", ""},
      {0x00, 0x00, "K\x97ln ist heute sonnig und warm", ""},
      {0x80, 0xF0, "Öl und Kohle im Angebot", "text:Öl und Kohle im Angebot"},
      {0x63, 0x60, "\0\xD6\0l"s, "text:Öl"},
      {0x00, 0x60, "\0K\0\xF6\0l\0n\x20\xAC"s, "text:Köln€"},
      {0x80, 0x40, "B\x99r", "text:Bür"},
      {0x80, 0x40, "Bün", "text:Bün"},
      {0x80, 0x00, "", "cleared:"}}},
    {"a length that leaves out another byte after the text, or none",
     {{0x62, 0x00, "abc", "text:abc", "x"}, {0x62, 0x00, "def", "text:def", ""}}},
    {"segments, one character in two of them, and the same again",
     {{0x41, 0xF0, "K\xC3", ""},
      {0x00, 0x10, "\xB6", ""},
      {0x21, 0x20, "ln", "text:Köln"},
      {0x41, 0xF0, "K\xC3", ""},
      {0x00, 0x10, "\xB6", ""},
      {0x21, 0x20, "ln", ""}}},
    {"a segment that is lost at first",
     {{0xC2, 0x00, "abc", ""},
      {0xA1, 0x20, "gh", ""},
      {0xC2, 0x00, "abc", ""},
      {0x82, 0x10, "def", "text:abcdefgh"}}},
    {"two labels that do not mix",
     {{0xC2, 0x00, "abc", ""}, {0x20, 0x10, "X", ""}, {0x41, 0x00, "VW", "text:VWX"}}},
    {"nor do they when the toggle bit stays",
     {{0x41, 0x00, "ab", ""},
      {0x21, 0x10, "cd", "text:abcd"},
      {0x41, 0x00, "AB", ""},
      {0x21, 0x10, "CD", "text:ABCD"},
      {0x21, 0x10, "ef", ""},
      {0x41, 0x00, "AB", "text:ABef"},
      {0x41, 0xF0, "AB", ""}}},
    {"nor with a whole label between them",
     {{0x41, 0x00, "ab", ""}, {0xE0, 0x00, "Z", "text:Z"}, {0x21, 0x10, "cd", ""}}},
    {"more segments than the last one said, and fewer",
     {{0x40, 0x00, "a", ""},
      {0x20, 0x10, "b", "text:ab"},
      {0x00, 0x10, "b", ""},
      {0x20, 0x20, "c", ""},
      {0x40, 0x00, "a", ""},
      {0x00, 0x10, "b", "text:abc"},
      {0x20, 0x10, "b", ""}}},
    {"a segment that is cut off",
     {{0x4F, 0x00, "abc", ""}, {0x2F, 0x10, "abc", ""}, {0x0F, 0x10, "abc", ""}}},
    {"text without a prefix",
     {{'N', 'o', "w: Köln", "text:Now: Köln"},
      {'Q', 'u', "iet!", "text:Quiet!"},
      {'R', 'a', "dio 1", "text:Radio 1"},
      {'2', '0', " Hits", "text:20 Hits"}}},
    {"a label that is removed",
     {{0x71, 0x00, "", ""},
      {0x80, 0x00, "One more", "text:One more"},
      {0x71, 0x00, "", "cleared:"},
      {0xF1, 0x00, "\0\0\0"s, ""},
      {0x80, 0x00, "One more", "text:One more"},
      {0xF1, 0x00, "", "cleared:", "x"}}},
    {"title and artist, counted in characters, for as long as they are on",
     {{0x80, 0xF0, "Ärzte - Für dich", "text:Ärzte - Für dich"},
      {0xF2, 0x86, "\x05\x04\x00\x05\x01\x08\x07"s, "item:Ärzte - Für dich|Für dich|Ärzte"},
      {0xF2, 0x86, "\x05\x04\x00\x04\x01\x08\x07"s, ""},
      {0xF2, 0x86, "\x01\x04\x00\x04\x01\x08\x07"s, "item:Ärzte - Für dich"},
      {0xF2, 0x86, "\x05\x84\x80\x84\x81\x88\x87"s, "item:Ärzte - Für dich|Für dich|Ärzte"},
      {0x00, 0xF0, "Ärzte - Für dich", ""},
      {0x80, 0xF0, "News at nine", "text:News at nine"}}},
    {"tags ahead of their label, and a label without them",
     {{0x80, 0x00, "Station", "text:Station"},
      {0x72, 0x03, "\x04\x01\x00\x02"s, ""},
      {0x00, 0x00, "Tom: Hey", "text:Tom: Hey|Tom|"},
      {0x00, 0x00, "Ann: Hey", "text:Ann: Hey"},
      {0x72, 0x83, "\x04\x01\x00\x02"s, ""},
      {0x80, 0x00, "Ann: Hey", "item:Ann: Hey|Ann|"}}},
    {"tags of another label, and fewer of them than announced",
     {{0x00, 0x00, "Tom: Hey", "text:Tom: Hey"},
      {0x72, 0x83, "\x04\x01\x00\x02"s, ""},
      {0x72, 0x03, "\x07\x04\x00\x02\x01\x05\x02"s, "item:Tom: Hey||Tom"}}},
    {"commands of no known kind",
     {{0x80, 0x00, "Tom: Hey", "text:Tom: Hey"},
      {0x97, 0x00, "\x01"s, ""},
      {0xF2, 0x83, "\x14\x01\x00\x02"s, ""},
      {0xF2, 0x8F, "\x04\x01"s, ""}}},
};

TEST(Dynamic_label, ShowsWhatItsPacketsSay) {
  for (const auto& [what, steps] : runs) {
    Dynamic_label label;
    for (const auto& [first, second, body, expected, trailing] : steps) {
      std::vector packet{first, second};
      for (const char c : body + trailing) packet.push_back(static_cast<std::uint8_t>(c));
      const auto change = label.feed(packet);
      const auto& [text, title, artist] = label.state();
      std::ostringstream shown;
      shown << names[static_cast<std::size_t>(change)];
      if (change != Label_change::nothing) shown << ':' << text;
      if (change != Label_change::nothing && !(title.empty() && artist.empty())) {
        shown << '|' << title << '|' << artist;
      }
      EXPECT_EQ(shown.str(), expected) << what << ": " << body;
    }
  }
}

TEST(Dynamic_label, TakesPacketsOfAnyLength) {
  Dynamic_label label;
  EXPECT_EQ(label.feed({}), Label_change::nothing);
  EXPECT_EQ(label.feed(std::array<std::uint8_t, 1>{'a'}), Label_change::nothing);
  std::vector<std::uint8_t> packet(70'000, 'a');
  packet[0] = packet[1] = 0;
  EXPECT_EQ(label.feed(packet), Label_change::text);
  EXPECT_EQ(label.state().text, std::string(Dynamic_label::most_text_bytes, 'a'));
}

}  // namespace
