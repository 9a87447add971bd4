// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/text.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

namespace kestrelctl {
namespace {

constexpr char32_t replacement = 0xFFFD;

/// ETSI TS 101 756, annex C: the complete EBU Latin based repertoire. The characters that steer a
/// display (line break, end of headline, word break) keep their codes.
constexpr std::u32string_view ebu_latin(
    U"\0ĘĮŲĂĖĎȘȚĊ\n\vĠĹŻŃ"
    U"ąęįųăėďșțċŇĚġĺż\x1F"
    U" !\"#ł%&'()*+,-./"
    U"0123456789:;<=>?"
    U"@ABCDEFGHIJKLMNO"
    U"PQRSTUVWXYZ[Ů]Ł_"
    U"Ąabcdefghijklmno"
    U"pqrstuvwxyz«ů»ĽĦ"
    U"áàéèíìóòúùÑÇŞß¡Ÿ"
    U"âäêëîïôöûüñçşğıÿ"
    U"ĶŅ©ĢĞěňőŐ€£$ĀĒĪŪ"
    U"ķņĻģļİńűŰ¿ľ°āēīū"
    U"ÁÀÉÈÍÌÓÒÚÙŘČŠŽÐĿ"
    U"ÂÄÊËÎÏÔÖÛÜřčšžđŀ"
    U"ÃÅÆŒŷÝÕØÞŊŔĆŚŹŤð"
    U"ãåæœŵýõøþŋŕćśźťħ",
    256);

/// UTF-16, which is what UCS-2 has become: a character beyond the basic plane takes two units.
std::u32string decode_ucs2(std::string_view bytes) {
  const auto unit = [bytes](std::size_t at) {
    return static_cast<char32_t>(static_cast<unsigned char>(bytes[at]) << 8 |
                                 static_cast<unsigned char>(bytes[at + 1]));
  };
  const auto is_surrogate = [](char32_t c, char32_t first) { return (c & 0xFC00) == first; };
  std::u32string code_points;
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
    char32_t c = unit(at);
    if (is_surrogate(c, 0xD800) && at + 3 < bytes.size() && is_surrogate(unit(at + 2), 0xDC00)) {
      at += 2;
      c = 0x10000 + ((c & 0x3FF) << 10 | (unit(at) & 0x3FF));
    }
    code_points += (c & 0xF800) == 0xD800 ? replacement : c;
  }
  return code_points;
}

/// A code point as libutf8proc counts them.
utf8proc_int32_t number(char32_t c) { return static_cast<utf8proc_int32_t>(c); }

/// Letters that have no accent to take off but are written without it all the same, in lower case.
struct Spelling {
  char32_t letter;
  std::string_view plain;
};
constexpr std::array spellings{Spelling{U'ø', "o"},  Spelling{U'đ', "d"}, Spelling{U'ð', "d"},
                               Spelling{U'ł', "l"},  Spelling{U'ħ', "h"}, Spelling{U'ı', "i"},
                               Spelling{U'ŋ', "n"},  Spelling{U'ŧ', "t"}, Spelling{U'æ', "ae"},
                               Spelling{U'œ', "oe"}, Spelling{U'þ', "th"}};

}  // namespace

std::u32string decode_utf8(std::string_view utf8) {
  std::u32string code_points;
  while (!utf8.empty()) {
    utf8proc_int32_t code_point = 0;
    const auto bytes = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()),
                                        static_cast<utf8proc_ssize_t>(utf8.size()), &code_point);
    code_points += bytes < 1 ? replacement : static_cast<char32_t>(code_point);
    utf8.remove_prefix(static_cast<std::size_t>(std::max<utf8proc_ssize_t>(bytes, 1)));
  }
  return code_points;
}

std::string encode_utf8(std::u32string_view code_points) {
  std::string utf8;
  for (const char32_t c : code_points) {
    std::array<utf8proc_uint8_t, 4> bytes{};
    const auto count = utf8proc_encode_char(number(c), bytes.data());
    utf8.append(bytes.begin(), bytes.begin() + count);
  }
  return utf8;
}

std::u32string decode_characters(std::string_view bytes, unsigned charset) {
  if (charset == charset_ucs2) return decode_ucs2(bytes);
  if (charset != charset_ebu_latin) {
    auto code_points = decode_utf8(bytes);
    if (charset == charset_utf8 || encode_utf8(code_points) == bytes) return code_points;
  }
  std::u32string code_points;
  for (const char byte : bytes) code_points += ebu_latin[static_cast<unsigned char>(byte)];
  return code_points;
}

std::string make_harmless(std::u32string_view code_points) {
  constexpr char32_t word_break = 0x1F;  // a soft hyphen among the controls
  constexpr std::u32string_view text_or_picture = U"\uFE0E\uFE0F";  // common after symbols
  std::u32string harmless;
  for (const char32_t c : code_points) {
    switch (utf8proc_category(number(c))) {
      case UTF8PROC_CATEGORY_CC:
      case UTF8PROC_CATEGORY_ZL:
      case UTF8PROC_CATEGORY_ZP:
        if (c != word_break) harmless += U' ';
        break;
      case UTF8PROC_CATEGORY_CF:
        break;
      case UTF8PROC_CATEGORY_CN:
      case UTF8PROC_CATEGORY_CS:
        harmless += replacement;
        break;
      default:
        if (utf8proc_get_property(number(c))->ignorable == 0 ||
            text_or_picture.find(c) != std::u32string_view::npos) {
          harmless += c;
        }
    }
  }
  harmless.resize(harmless.find_last_not_of(U' ') + 1);
  return encode_utf8(harmless);
}

std::string make_harmless(std::string_view utf8) { return make_harmless(decode_utf8(utf8)); }

std::string decode_label(std::string_view bytes, unsigned charset) {
  return make_harmless(decode_characters(bytes, charset));
}

void read_tag(const Text_tag& tag, std::u32string_view text, std::string& title,
              std::string& artist) {
  constexpr unsigned item_title = 1;
  constexpr unsigned item_artist = 4;
  const bool is_title = tag.content_type == item_title;
  if (tag.start >= text.size() || (!is_title && tag.content_type != item_artist)) return;
  auto part = make_harmless(text.substr(tag.start, tag.length_marker + 1));
  part.erase(0, part.find_first_not_of(' '));
  (is_title ? title : artist) = std::move(part);
}

std::string fold(std::string_view utf8) {
  constexpr auto options = static_cast<utf8proc_option_t>(UTF8PROC_COMPAT | UTF8PROC_DECOMPOSE |
                                                          UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK);
  constexpr std::size_t longest_decomposition = 32;
  std::string folded;
  for (const char32_t c : decode_utf8(utf8)) {
    std::array<utf8proc_int32_t, longest_decomposition> parts{};
    const auto count =
        utf8proc_decompose_char(number(c), parts.data(), parts.size(), options, nullptr);
    for (const auto part : std::span(parts).first(static_cast<std::size_t>(count))) {
      const auto letter = static_cast<char32_t>(part);
      const auto* const found = std::ranges::find(spellings, letter, &Spelling::letter);
      folded += found == spellings.end() ? encode_utf8({&letter, 1}) : std::string(found->plain);
    }
  }
  return folded;
}

std::size_t count_columns(std::string_view utf8) {
  std::size_t columns = 0;
  for (const char32_t c : decode_utf8(utf8)) {
    columns += static_cast<std::size_t>(utf8proc_charwidth(number(c)));
  }
  return columns;
}

std::string pad(std::string_view utf8, std::size_t columns, bool to_the_right) {
  const std::string blanks(columns - std::min(columns, count_columns(utf8)), ' ');
  return to_the_right ? blanks + std::string(utf8) : std::string(utf8) + blanks;
}

}  // namespace kestrelctl
