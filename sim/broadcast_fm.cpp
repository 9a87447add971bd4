// SPDX-License-Identifier: GPL-3.0-or-later
//
// The FM stations on the air: strong and weak ones over the whole band, three
// with HD carriers, one without RDS, one that is too weak to listen to.
#include "sim/broadcast.h"

namespace sim {

std::vector<Fm_station> default_stations() {
  // The characters of RadioText are those of the basic set: \221, \227 and \231 are its umlauts.
  const std::vector<Text> morning = {{"Altmoor am Morgen"}, {"Heute sch\227n, sp\221ter k\231hl"}};
  const std::vector<Text> news = {{"News every half hour, traffic when it matters"}};
  const std::vector<Text> quartet = {{"String quartet in G minor, live from Lindwil"}};
  const std::vector<Text> songs = {
      {"Now on Seegrund: The Paper Lanterns - Northbound", "Northbound", "The Paper Lanterns"},
      {"Seegrund: the whole of the lake, all of its songs, at all hours."},
      {"Mira Holt with K\231hle N\221chte", "K\231hle N\221chte", "Mira Holt"}};
  const std::vector<Text> jazz = {{"Jazz after dark"},
                                  {"Osk Trio: Blue Ledge", "Blue Ledge", "Osk Trio"}};
  // clang-format off
  return {
      // kHz    RSSI SNR multipath offset antenna HD  RDS    PI      PTY TP     TA     name, texts, alternatives
      { 87600,  41, 24,  6,  0, 12,  0, true,  0x4201, 10, false, false, "ALTMOOR",  morning, {94600}},
      { 88800,  56, 33,  2,  1, 11,  0, true,  0x4202,  1, true,  true,  "FELS ONE", news, {97100, 103400}},
      { 90300,  38, 21, 11, -2, 11,  0, true,  0x4203, 14, false, false, "FELS DUO", quartet},
      { 91700,  12,  5, 34,  4, 10,  0, true,  0xD318,  0, false, false, "FARAWAY",  {{"Too weak to seek"}}},
      { 93000,  63, 38,  1,  0, 10, 82, true,  0x4A11, 11, false, false, "LOUD 93",  {{"Guitars until midnight"}}},
      { 94600,  47, 29,  4,  0,  9,  0, true,  0x4201, 10, false, false, "ALTMOOR",  morning, {87600}},
      { 95900,  33, 17, 15, -3,  9,  0, false, 0x4A40,  5, false, false, "CAMPUS",   {}},
      { 97100,  51, 31,  3,  0,  9,  0, true,  0x4202,  1, true,  true,  "FELS ONE", news, {88800, 103400}},
      { 98500,  60, 36,  2,  0,  8, 91, true,  0x4A22, 10, true,  false, "SEEGRUND", songs},
      {100200,  29, 14, 21,  2,  8,  0, true,  0xD319,  9, false, false, "GRENZ 4",  {{"Rund um den Hochried"}}},
      {101900,  44, 26,  7, -1,  8,  0, true,  0x4A33, 24, false, false, "BLUENOTE", jazz},
      {103400,  36, 20,  9,  0,  7,  0, true,  0x4202,  1, true,  true,  "FELS ONE", news, {88800, 97100}},
      {105700,  54, 34,  2,  1,  7, 44, true,  0xF204, 15, false, false, "VELROSE",  {{"La vall\202e en musique"}}},
      {107800,  40, 23,  8,  0,  7,  0, true,  0x4A55, 31, true,  false, "ALERT",    {{"Alarm channel"}}},
  };
  // clang-format on
}

}  // namespace sim
