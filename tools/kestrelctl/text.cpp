// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cwchar>
#include <cwctype>

namespace kestrelctl {
namespace {

constexpr char32_t replacement = 0xFFFD;

/// ETSI TS 101 756, annex C: the complete EBU Latin based repertoire. 0 stands for a character that
/// steers a display: it is shown as a blank.
constexpr std::u32string_view ebu_latin_low(
    U"\0ĘĮŲĂĖĎȘȚĊ\0\0ĠĹŻŃ"
    U"ąęįųăėďșțċŇĚġĺż\0",
    32);
constexpr std::u32string_view ebu_latin_high(
    U"áàéèíìóòúùÑÇŞß¡Ÿ"
    U"âäêëîïôöûüñçşğıÿ"
    U"ĶŅ©ĢĞěňőŐ€£$ĀĒĪŪ"
    U"ķņĻģļİńűŰ¿ľ°āēīū"
    U"ÁÀÉÈÍÌÓÒÚÙŘČŠŽÐĿ"
    U"ÂÄÊËÎÏÔÖÛÜřčšžđŀ"
    U"ÃÅÆŒŷÝÕØÞŊŔĆŚŹŤð"
    U"ãåæœŵýõøþŋŕćśźťħ");
static_assert(ebu_latin_low.size() == 32 && ebu_latin_high.size() == 128);

struct Exception {
  unsigned char byte;
  char32_t code_point;
};
/// Where EBU Latin is not ASCII between 0x20 and 0x7F.
constexpr std::array ebu_latin_exceptions{
    Exception{0x24, U'ł'}, Exception{0x5C, U'Ů'}, Exception{0x5E, U'Ł'},
    Exception{0x60, U'Ą'}, Exception{0x7B, U'«'}, Exception{0x7C, U'ů'},
    Exception{0x7D, U'»'}, Exception{0x7E, U'Ľ'}, Exception{0x7F, U'Ħ'}};

char32_t decode_ebu_latin(unsigned char byte) {
  if (byte < 0x20) return ebu_latin_low[byte];
  if (byte >= 0x80) return ebu_latin_high[byte - 0x80U];
  const auto* found = std::ranges::find(ebu_latin_exceptions, byte, &Exception::byte);
  return found == ebu_latin_exceptions.end() ? byte : found->code_point;
}

/// Would it move a cursor, change colours or turn the direction of a line?
bool is_harmful(char32_t c) {
  const auto between = [c](char32_t first, char32_t last) { return c >= first && c <= last; };
  return c < 0x20 || between(0x7F, 0x9F) || c == 0x061C || between(0x200E, 0x200F) ||
         between(0x2028, 0x202E) || between(0x2066, 0x2069) || c == 0xFEFF ||
         between(0xFFF9, 0xFFFB);
}

std::string finish(std::u32string code_points) {
  std::ranges::replace_if(code_points, is_harmful, U' ');
  code_points.resize(code_points.find_last_not_of(U' ') + 1);
  return encode_utf8(code_points);
}

/// A sequence of UTF-8 by its first byte: its length, and the least code point that needs it.
struct Sequence {
  std::size_t bytes;
  char32_t least;
};
Sequence sequence_of(unsigned char first) {
  if (first < 0x80) return {1, 0};
  if (first >= 0xC2 && first < 0xE0) return {2, 0x80};
  if (first >= 0xE0 && first < 0xF0) return {3, 0x800};
  if (first >= 0xF0 && first < 0xF5) return {4, 0x10000};
  return {0, 0};
}

/// The code point that `utf8` begins with, and its length; no length for what is no UTF-8.
Sequence decode_one(std::string_view utf8) {
  const auto first = static_cast<unsigned char>(utf8[0]);
  const auto sequence = sequence_of(first);
  if (sequence.bytes < 2) return {sequence.bytes, first};
  if (utf8.size() < sequence.bytes) return {0, 0};
  char32_t code_point = first & (0x7FU >> sequence.bytes);
  for (const char next : utf8.substr(1, sequence.bytes - 1)) {
    const auto byte = static_cast<unsigned char>(next);
    if ((byte & 0xC0U) != 0x80) return {0, 0};
    code_point = code_point << 6 | (byte & 0x3FU);
  }
  const bool is_surrogate = code_point >= 0xD800 && code_point < 0xE000;
  if (code_point < sequence.least || is_surrogate || code_point > 0x10FFFF) return {0, 0};
  return {sequence.bytes, code_point};
}

}  // namespace

std::u32string decode_utf8(std::string_view utf8) {
  std::u32string code_points;
  while (!utf8.empty()) {
    const auto [bytes, code_point] = decode_one(utf8);
    code_points += bytes == 0 ? replacement : code_point;
    utf8.remove_prefix(std::max<std::size_t>(bytes, 1));
  }
  return code_points;
}

std::string encode_utf8(std::u32string_view code_points) {
  std::string utf8;
  const auto put = [&utf8](char32_t byte) { utf8 += static_cast<char>(byte); };
  for (const char32_t c : code_points) {
    if (c < 0x80) {
      put(c);
      continue;
    }
    unsigned shift = c < 0x800 ? 6 : c < 0x10000 ? 12 : 18;
    constexpr std::array<char32_t, 4> lead{0, 0xC0, 0xE0, 0xF0};
    put(lead[shift / 6] | c >> shift);
    while (shift > 0) {
      shift -= 6;
      put(0x80 | (c >> shift & 0x3F));
    }
  }
  return utf8;
}

std::string make_harmless(std::string_view utf8) { return finish(decode_utf8(utf8)); }

std::string decode_label(std::string_view bytes, unsigned charset) {
  if (charset == charset_utf8) return make_harmless(bytes);
  std::u32string code_points;
  for (const char byte : bytes) code_points += decode_ebu_latin(static_cast<unsigned char>(byte));
  return finish(std::move(code_points));
}

std::string fold_case(std::string_view utf8) {
  auto code_points = decode_utf8(utf8);
  for (auto& c : code_points) c = static_cast<char32_t>(std::towlower(static_cast<wint_t>(c)));
  return encode_utf8(code_points);
}

std::size_t count_columns(std::string_view utf8) {
  std::size_t columns = 0;
  for (const char32_t c : decode_utf8(utf8)) {
    const int width = wcwidth(static_cast<wchar_t>(c));
    // Unknown to the locale: most likely one column.
    columns += width < 0 ? 1 : static_cast<std::size_t>(width);
  }
  return columns;
}

std::string pad(std::string_view utf8, std::size_t columns, bool to_the_right) {
  const std::string blanks(columns - std::min(columns, count_columns(utf8)), ' ');
  return to_the_right ? blanks + std::string(utf8) : std::string(utf8) + blanks;
}

}  // namespace kestrelctl
