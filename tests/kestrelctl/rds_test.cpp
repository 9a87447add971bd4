// SPDX-License-Identifier: GPL-3.0-or-later
//
// What is made of RDS groups: some recorded from the air, others with errors.
#include "kestrelctl/rds.h"

#include <gtest/gtest.h>

#include <sstream>
#include <utility>

namespace {

using namespace kestrelctl;
using Groups = std::vector<Rds_group>;

constexpr std::array<std::uint8_t, 4> lost{3, 3, 3, 3};

/// Blocks in hexadecimal, four per group.
Groups groups(const std::string& text) {
  Groups all;
  std::istringstream in(text);
  in >> std::hex;
  for (Rds_group group;
       in >> group.blocks[0] >> group.blocks[1] >> group.blocks[2] >> group.blocks[3];) {
    all.push_back(group);
  }
  return all;
}

std::string time_text(const std::optional<Rds_time>& time) {
  if (!time) return "";
  using namespace std::chrono;
  const auto day = floor<days>(time->local);
  const year_month_day date(day);
  const hh_mm_ss clock(time->local - day);
  std::ostringstream out;
  out << int(date.year()) << '-' << unsigned(date.month()) << '-' << unsigned(date.day()) << ' '
      << clock.hours().count() << ':' << clock.minutes().count() << ' ' << time->utc_offset.count();
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
  put("time", time_text(state.time));
  std::string list;
  for (const auto khz : state.alternatives_khz) list += std::to_string(khz) + ' ';
  put("af", list);
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

const Reception receptions[]{
    {"name by 0A",
     "6204 0130 966B 594C 6204 0131 93CD 4520 6204 0132 E472 5833 6204 0137 966B 4D20",
     "ps=YLE X3M ;af=102500 98200 102200 98900 ;", "af=102500 98200 102200 98900 ;"},
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
    {"text without an end",
     "A540 2540 526F 6262 A540 2541 6965 2057 A540 2542 696C 6C69 A540 2543 616D 7320 "
     "A540 2544 2D20 4665 A540 2545 656C 2020 A540 2540 526F 6262 A540 2541 6965 2057 "
     "A540 2542 696C 6C69 A540 2543 616D 7320 A540 2544 2D20 4665 A540 2545 656C 2020",
     "text=Robbie Williams - Feel;"},
    {"text in pairs, by 2B", "A540 2D40 A540 526F A540 2D41 A540 6262 A540 2D42 A540 0D20",
     "text=Robb;"},
    {"another text, the flag turned",
     "6202 2150 4749 524C 6202 2151 5327 2047 6202 2152 454E 4552 6202 2153 4154 494F "
     "6202 2154 4E20 2D20 6202 2155 5275 6E20 6202 2156 6465 7669 6202 2157 6C20 7275 "
     "6202 2158 6E0D 2020 6202 2140 5061 7061 6202 2141 6E61 6E61 6202 2142 616D 616E "
     "6202 2143 204B 2D70 6202 2144 6F70 2D73 6202 2145 686F 770D",
     "text=Papananaaman K-pop-show;", "text=GIRLS' GENERATION - Run devil run;"},
    {"another text, the flag as it was",
     "6202 2140 4141 4141 6202 2141 420D 2020 6202 2140 4141 4141 6202 2141 430D 2020",
     "text=AAAAB;"},
    {"text that is taken away", "6202 2140 4141 0D20 6202 2150 0D20 2020", "", "text=AA;"},
    {"alternative frequencies",
     "6201 00F7 E704 5349 6201 00F0 2217 594C 6201 00F1 1139 4520 6201 00F2 0A14 594B",
     "af=87900 90900 89800 89200 93200 88500 89500 ;"},
    {"alternative frequencies in medium wave", "6201 00F7 E204 5349 6201 00F0 FA22 594C",
     "af=87900 ;"},
    {"clock", "D314 41C1 C3EF 5AC4", "time=2017-4-4 23:43 120;"},
    {"clock at the end of a day", "F201 441D D299 5EC4", "time=2022-5-25 23:59 120;"},
    {"clock at the beginning of a day", "F201 441D D299 6004", "time=2022-5-26 0:0 120;"},
    {"clock west of Greenwich", "D314 41C1 C3EE 0AEB", "time=2017-4-3 19:13 -330;"},
    {"clock without a date", "D314 41C0 7530 5AC4", ""},
    {"clock with 24 hours", "D314 41C1 C3EF 8AC4", ""},
    {"clock with 60 minutes", "D314 41C1 C3EF 5F04", ""},
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

}  // namespace
