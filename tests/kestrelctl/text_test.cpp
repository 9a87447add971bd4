// SPDX-License-Identifier: GPL-3.0-or-later
//
// Character sets, what may be printed, names compared, columns.
#include "kestrelctl/text.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>

namespace {

using namespace kestrelctl;
using namespace std::string_literals;

TEST(Text, OfEachCharacterSetIsDecoded) {
  constexpr unsigned not_assigned = 4;
  const std::tuple<std::string, unsigned, std::string> rows[]{
      {"Seegrund Pop    ", charset_ebu_latin, "Seegrund Pop"},
      {"\x24\x5C\x5E\x60\x7B\x7C\x7D\x7E\x7F", charset_ebu_latin, "łŮŁĄ«ů»ĽĦ"},
      {"\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0C\x0D\x0E\x0F", charset_ebu_latin, "ĘĮŲĂĖĎȘȚĊĠĹŻŃ"},
      {"\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1A\x1B\x1C\x1D\x1E", charset_ebu_latin,
       "ąęįųăėďșțċŇĚġĺż"},
      {"\x80\x8F\x90\x9F\xA0\xA9\xAF\xB0\xBF\xC0\xCF\xD0\xDF\xE0\xEF\xF0\xFF", charset_ebu_latin,
       "áŸâÿĶ€ŪķūÁĿÂŀÃðãħ"},
      // Line break, end of headline and nothing at all; a word may break where it is not broken.
      {"a\x0A\x0B\0b\x1F"s
       "c",
       charset_ebu_latin, "a   bc"},
      {"\0K\0\xF6\x20\xAC\xD8\x3D\xDC\xFB"s, charset_ucs2, "Kö€\U0001F4FB"},
      {"\xD8\x3D\0a\xDC\xFB\xD8\x3D\0"s, charset_ucs2, "\uFFFDa\uFFFD\uFFFD"},
      {"Köln \U0001F4FB", charset_utf8, "Köln \U0001F4FB"},
      {"\xC3(\xED\xA0\x80\xC0\xAF\xF5\xE2\x82", charset_utf8,
       "\uFFFD(\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"Köln", not_assigned, "Köln"},
      {"K\x97ln", not_assigned, "Köln"},
  };
  for (const auto& [bytes, charset, text] : rows) EXPECT_EQ(decode_label(bytes, charset), text);
}

TEST(Text, IsHarmlessWhenPrinted) {
  const std::pair<std::string, std::string> rows[]{
      {"\x1B[31mred\x07\x7F\u009B", " [31mred"},
      {"a\u202Eb\u202Cc\u2066d\u2069e\u200Ff\u061Cg\u2028h\u0085i", "abcdefg h i"},
      // Zero width, soft hyphen, invisible operators, annotations, tags, fillers.
      {"a\u200B\u200D\uFEFF\u00AD\u2060\u2064\u206A\u206F\uFFF9\uFFFB\U000E0001\U000E007Fb", "ab"},
      {"a\uFE00\U000E0100\u034F\u3164\u180Eb", "ab"},
      {"a\u2065\uFFF0\U000E0FFFb", "a\uFFFD\uFFFD\uFFFDb"},
      {"a\U0000FFFE\uFDD0\U0010FFFFb", "a\uFFFD\uFFFD\uFFFDb"},
      // Harmless: accents of their own, an emoji and how it is to be drawn, Hebrew.
      {"e\u0301 \u2764\uFE0F\u05D0", "e\u0301 \u2764\uFE0F\u05D0"},
      {"  a \u00AD \n", "  a"},
  };
  for (const auto& [text, harmless] : rows) EXPECT_EQ(make_harmless(text), harmless);
}

TEST(Text, IsComparedWithoutCaseAndAccents) {
  const std::pair<std::string, std::string> rows[]{{"Höhenweg", "hohenweg"},
                                                   {"HO\u0308HENWEG", "hohenweg"},
                                                   {"STRASSE", "straße"},
                                                   {"Łódź Đurđa", "lodz durda"},
                                                   {"ÆØÅ Œuvre", "aeoa oeuvre"},
                                                   {"İzmir ışık", "izmir isik"},
                                                   {"Ｆｉｅ", "fie"},
                                                   {"ЁЖ", "еж"}};
  for (const auto& [one, other] : rows) EXPECT_EQ(fold(one), fold(other));
  EXPECT_NE(fold("Hohenweg"), fold("Hohenwald"));
}

TEST(Text, TakesColumns) {
  const std::pair<std::string, std::size_t> rows[]{
      {"Köln", 4}, {"Ko\u0308ln", 4}, {"東京", 4}, {"\U0001F4FB", 2}, {"", 0}};
  for (const auto& [text, columns] : rows) EXPECT_EQ(count_columns(text), columns) << text;
  EXPECT_EQ(pad("Ko\u0308ln", 6), "Ko\u0308ln  ");
  EXPECT_EQ(pad("東京", 6, true), "  東京");
  EXPECT_EQ(pad("Seegrund", 4), "Seegrund");
}

}  // namespace
