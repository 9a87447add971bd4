// SPDX-License-Identifier: GPL-3.0-or-later
//
// What is made of RDS groups: some recorded from the air, others with errors.
#include "kestrelctl/rds.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <sstream>
#include <utility>

namespace {

using namespace kestrelctl;
using Groups = std::vector<Rds_group>;

/// Blocks A to D in hexadecimal, four per group; "/1" to "/3" after a block is its level of errors.
Groups groups(const std::string& text) {
  Groups all;
  std::istringstream in(text);
  std::string block;
  for (std::size_t i = 0; in >> block; ++i) {
    if (i % 4 == 0) all.emplace_back();
    all.back().blocks.at(i % 4) = static_cast<std::uint16_t>(std::stoul(block, nullptr, 16));
    if (block.size() > 4) all.back().errors.at(i % 4) = static_cast<std::uint8_t>(block[5] - '0');
  }
  return all;
}

/// Blanks up to the last group of a RadioText, after `block_b`.
std::string blanks_after(const std::string& pi, unsigned block_b) {
  std::ostringstream out;
  for (out << std::hex; (block_b & 0xF) != 0xF;) {
    out << ' ' << pi << ' ' << ++block_b << " 2020 2020";
  }
  return out.str();
}

/// What is known, and nothing of what is not.
std::string describe(const Rds_state& state) {
  std::ostringstream out;
  const auto put = [&out](const char* name, const std::string& value) {
    if (!value.empty()) out << name << '=' << value << ';';
  };
  put("ps", state.ps);
  put("text", state.radiotext);
  put("title", state.title);
  put("artist", state.artist);
  if (state.time) {
    put("time",
        fmt::format("{:%F %R} {}", std::chrono::sys_seconds(state.time->local.time_since_epoch()),
                    state.time->utc_offset.count()));
  }
  put("af", fmt::format("{}", fmt::join(state.alternatives_khz, " ")));
  return out.str();
}

std::string decode(const Groups& all) {
  Rds_decoder decoder;
  for (const auto& group : all) decoder.feed(group);
  return describe(decoder.state());
}

struct Reception {
  const char* what;
  std::string groups;
  std::string says;
  /// Without the last group.
  std::optional<std::string> said_before = {};
};

// "A-B", and its tags: title at 0 and artist at 2, of one character each.
const std::string text_and_tags = "53C5 2550 412D 420D 53C5 C548 2000 2040 ";
const std::string tagged = "53C5 3558 0000 4BD7 " + text_and_tags;

const Reception receptions[]{
    {"name by 0A",
     "6204 0130 966B 594C 6204 0131 93CD 4520 6204 0132 E472 5833 6204 0137 966B 4D20",
     "ps=YLE X3M ;af=102500 98200 102200 98900;", "af=102500 98200 102200 98900;"},
    {"name by 0B",
     "9423 0800 0000 2020 9423 0801 0000 4B52 9423 0802 0000 4B41 9423 0807 0000 2020",
     "ps=  KRKA  ;"},
    {"name whose first half may be of another name",
     "1001 0002 E0CD 4333 1001 0003 E0CD 4444 1001 0000 E0CD 4131 1001 0001 E0CD 4232 "
     "1001 0002 E0CD 4333 1001 0003 E0CD 4444",
     "ps=A1B2C3DD;", ""},
    {"name that another one replaces",
     "1001 0000 E0CD 4141 1001 0001 E0CD 4242 1001 0002 E0CD 4343 1001 0003 E0CD 4444 "
     "1001 0000 E0CD 4545 1001 0001 E0CD 4242 1001 0002 E0CD 4343",
     "ps=AABBCCDD;"},
    {"text with an end", "C954 24F0 4A41 434B C954 24F1 2039 362E C954 24F2 390D 0000",
     "text=JACK 96.9;"},
    {"text beyond ASCII, filled up with blanks",
     "6205 2440 5665 6761 6205 2441 204B 7691 6205 2442 6C6C 2020" + blanks_after("6205", 0x2442),
     "text=Vega Kväll;", ""},
    {"text without an end",
     "A540 2540 526F 6262 A540 2541 6965 2020 A540 2540 526F 6262 A540 2541 6965 2020",
     "text=Robbie;"},
    {"text in pairs, by 2B", "A540 2D40 A540 526F A540 2D41 A540 6262 A540 2D42 A540 0D20",
     "text=Robb;"},
    {"another text, the flag turned",
     "6202 2150 5275 6E20 6202 2151 720D 2020 6202 2140 5061 7061 6202 2141 6E0D 2020",
     "text=Papan;", "text=Run r;"},
    {"another text, the flag as it was",
     "6202 2140 4141 4141 6202 2141 420D 2020 6202 2140 4141 4141 6202 2141 430D 2020",
     "text=AAAAB;"},
    {"text that is taken away", "6202 2140 4141 0D20 6202 2150 0D20 2020", "", "text=AA;"},
    {"alternative frequencies",
     "6201 00F7 E704 5349 6201 00F0 2217 594C 6201 00F1 1139 4520 6201 00F2 0A14 594B",
     "af=87900 90900 89800 89200 93200 88500 89500;"},
    {"alternative frequencies in medium wave", "6201 00F7 E204 5349 6201 00F0 FA22 594C",
     "af=87900;"},
    {"title and artist",
     "53C5 3558 0000 4BD7 53C5 C548 8020 0A6A 53C5 2550 4649 4F52 53C5 2551 454C 4C41 "
     "53C5 2552 204D 414E 53C5 2553 4E4F 4941 53C5 2554 202D 2047 53C5 2555 4C49 2041 "
     "53C5 2556 4D41 4E54 53C5 2557 4920 2020" +
         blanks_after("53C5", 0x2557) + " 53C5 C548 8020 0A6A",
     "text=FIORELLA MANNOIA - GLI AMANTI;title=GLI AMANTI;artist=FIORELLA MANNOIA;",
     "text=FIORELLA MANNOIA - GLI AMANTI;"},
    {"title and artist that end with their item", tagged + "53C5 C540 2000 2021", "text=A-B;",
     "text=A-B;title=A;artist=B;"},
    {"title and artist of another item", tagged + "53C5 C558 0000 2000", "text=A-B;artist=A;"},
    {"title and artist of a text that is gone", tagged + "53C5 2540 580D 2020", "text=X;"},
    {"tags between two texts", tagged + "53C5 2540 5858 5858 53C5 C558 2000 2020", "text=A-B;",
     "text=A-B;title=A;artist=B;"},
    {"tags in groups of another use", "53C5 3558 0000 4BD7 53C5 3558 0000 CD46 " + text_and_tags,
     "text=A-B;"},
    {"tags that were corrected once",
     "53C5 3558 0000 4BD7 53C5 2550 412D 420D 53C5 C548 2000/1 2040 "
     "53C5 C548 2000/2 2040",
     "text=A-B;title=A;artist=B;", "text=A-B;"},
    {"groups of tags announced in a corrected group", "53C5 3558/1 0000 4BD7 " + text_and_tags,
     "text=A-B;"},
    {"clock", "D314 41C1 C3EF 5AC4", "time=2017-04-04 23:43 120;"},
    {"clock at midnight", "F201 441D D299 5EC4 F201 441D D299 6004", "time=2022-05-26 00:00 120;",
     "time=2022-05-25 23:59 120;"},
    {"clock west of Greenwich", "D314 41C1 C3EE 0AEB", "time=2017-04-03 19:13 -330;"},
    {"clocks without a date, with 24 hours, with 60 minutes, 14.5 hours east",
     "D314 41C0 7530 5AC4 D314 41C1 C3EF 8AC4 D314 41C1 C3EF 5F04 D314 41C1 C3EF 5ADD", ""},
    {"clock that was corrected", "D314 41C1 C3EF/1 5AC4 D314 41C1 C3EF/1 5AC4", ""},
    {"a pair that was corrected, and again",
     "1001 0000 E0CD 4141 1001 0001 E0CD 4242 1001 0002 E0CD 4343/1 1001 0003 E0CD 4444 "
     "1001 0000 E0CD 4141 1001 0001 E0CD 4242 1001 0002 E0CD 4343/2 1001 0003 E0CD 4444",
     "ps=AABBCCDD;", ""},
    {"a pair at an address that was corrected",
     "1001 0000 E0CD 4141 1001 0001 E0CD 4242 1001 0002/2 E0CD 4343 1001 0003 E0CD 4444", ""},
    {"a name with a carriage return",
     "1001 0000 E0CD 410D 1001 0001 E0CD 4242 1001 0002 E0CD 4343 1001 0000 E0CD 410D", ""},
    {"blocks that could not be corrected",
     "1001 0000 E0CD 4141 1001 0001 E0CD 4242 1001 0002 E0CD 4343/3 1001 0002/3 E0CD 4343 "
     "1001 0003 E0CD 4444",
     ""},
    {"frequencies that were corrected, and one of them again",
     "6201 00F0 0102/1 594C 6201 00F1 0203/2 594C", "af=87700;", ""},
    {"a flag that was corrected ends a text only when it stays",
     "6202 2140 4141 410D 6202 2150/1 4242 420D 6202 2150/1 4242 420D 6202 2150/1 4242 420D",
     "text=BBB;", "text=AAA;"},
    {"the end of a text that was not seen",
     "A540 2540 4141 4141 A540 2541 4242 4242 A540 2542/3 4343 4343 A540 2540 4141 4141 "
     "A540 2541 4242 4242 A540 2542/3 4343 4343 A540 2540 4141 4141",
     ""},
    {"the end of a text in groups that became others",
     "A540 2540 4141 4141 A540 2541 4242 4242 A540 0542/1 4343 4343 A540 2540 4141 4141 "
     "A540 2541 4242 4242 B540/1 2542 4343 4343 A540 2540 4141 4141",
     ""},
    {"another station comes through",
     "1001 2140 4141 410D 2002 0000 E0CD 4141 2002 0001 E0CD 4242 2002 0002 E0CD 4343 "
     "2002 0003 E0CD 4444",
     "ps=AABBCCDD;", ""},
    {"a group of another station", "1001 2140 4141 410D 2002 2140 4242 420D 1001 2140 4141 410D",
     "text=AAA;", "text=AAA;"},
};

TEST(Rds, GroupsSayWhatTheStationSays) {
  for (const auto& [what, text, says, said_before] : receptions) {
    auto all = groups(text);
    EXPECT_EQ(decode(all), says) << what;
    if (!said_before) continue;
    all.pop_back();
    EXPECT_EQ(decode(all), said_before) << what;
  }
}

TEST(Rds, GroupsSayWhatKindOfStationItIs) {
  const std::pair<std::string, std::string> rows[]{
      {"6204 0130 966B 594C 6204 0137 966B 4D20", "6204 pty 9 tp 0 ta 1"},
      {"6204 0548 966B 594C", "6204 pty 10 tp 1 ta 0"},
      {"6204 0533 966B 594C", "6204 pty 9 tp 1 ta 1"},
      {"6204/1 0533/1 966B 594C 6204/2 0533/2 966B 594C", "6204 pty 9 tp 1 ta 1"},
      {"6204/3 2D40 1234 4141 6204/3 2D40 0000 4141", "1234 pty 10 tp 1 ta -"},
      {"6204 0400 E0CD 4141 1234 0420 E0CD 4141", "6204 pty 0 tp 1 ta 0"},
  };
  for (const auto& [text, expected] : rows) {
    Rds_decoder decoder;
    for (const auto& group : groups(text)) decoder.feed(group);
    const auto& state = decoder.state();
    const auto show = [](const auto& value) { return value ? std::to_string(*value) : "-"; };
    EXPECT_EQ(fmt::format("{:X} pty {} tp {} ta {}", state.pi.value_or(0), show(state.pty),
                          show(state.tp), show(state.ta)),
              expected);
    decoder.reset();
    EXPECT_FALSE(decoder.state().pi);
  }
}

// A station that sends 0A and 2A by turns.
struct Station {
  std::string name;
  std::string text;
  unsigned flag;

  Rds_group group(std::size_t number) const {
    const auto pair = [](const std::string& from, std::size_t at) {
      return static_cast<std::uint16_t>(static_cast<unsigned char>(from[at]) << 8 |
                                        static_cast<unsigned char>(from[at + 1]));
    };
    const auto turn = number / 2;
    if (number % 2 == 0) {
      const auto segment = turn % 4;
      return {{0x1234, static_cast<std::uint16_t>(segment), 0xE0CD, pair(name, 2 * segment)}, {}};
    }
    const auto segment = turn % (text.size() / 4);
    return {{0x1234, static_cast<std::uint16_t>(0x2000 | flag << 4 | segment),
             pair(text, 4 * segment), pair(text, 4 * segment + 2)},
            {}};
  }
};

const std::string long_text = "This is a text of as many characters as RadioText can have, 64..";

TEST(Rds, TextIsCompleteInTimeWhereverItBegins) {
  // At 11.4 groups a second.
  constexpr std::size_t groups_in_2_s = 22;
  constexpr std::size_t groups_in_8_s = 91;
  const Station station{"Seegrund", long_text, 0};
  for (std::size_t first = 0; first < 128; ++first) {
    Rds_decoder decoder;
    for (std::size_t i = 1; i <= groups_in_8_s; ++i) {
      decoder.feed(station.group(first + i));
      if (i >= groups_in_2_s) {
        EXPECT_EQ(decoder.state().ps, "Seegrund") << first;
      }
    }
    EXPECT_EQ(decoder.state().radiotext, long_text) << first;
  }
}

TEST(Rds, TextIsRightWithATenthOfTheBlocksInError) {
  constexpr std::size_t groups_per_text = 1200;
  // Some stations turn the flag for a new text, some do not; some texts have an end, some do not.
  const Station stations[]{{"Seegrund", long_text, 0},
                           {"Seegrund", "Short, with an end\r ", 1},
                           {"Hoehenwg", "Without an end, which is 32 long", 1},
                           {"  Quay  ", "Without an end, and like the other A", 0},
                           {"  Quay  ", "Without an end, and like the other B, longer", 0}};
  std::seed_seq seed{1};
  std::mt19937 random(seed);
  const auto one_in = [&random](unsigned n) { return random() % n == 0; };
  for (int run = 0; run < 10; ++run) {
    Rds_decoder decoder;
    std::set<std::string> names{""}, texts{""};
    for (const auto& station : stations) {
      const auto text = station.text.substr(0, station.text.find('\r'));
      names.insert(station.name);
      texts.insert(text);
      const auto begin = random() % 128;
      for (std::size_t i = 0; i < groups_per_text; ++i) {
        auto group = station.group(begin + i);
        for (std::size_t block = 0; block < 4; ++block) {
          if (!one_in(10)) continue;
          group.errors[block] = static_cast<std::uint8_t>(1 + random() % 3);
          // Not every correction is right.
          if (group.errors[block] == 3 || one_in(2)) {
            group.blocks[block] ^= static_cast<std::uint16_t>(random());
          }
        }
        decoder.feed(group);
        ASSERT_TRUE(names.contains(decoder.state().ps)) << decoder.state().ps;
        ASSERT_TRUE(texts.contains(decoder.state().radiotext)) << decoder.state().radiotext;
      }
      EXPECT_EQ(decoder.state().ps, station.name);
      EXPECT_EQ(decoder.state().radiotext, text);
    }
  }
}

}  // namespace
