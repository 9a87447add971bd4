// SPDX-License-Identifier: GPL-3.0-or-later
//
// Text from the air and from a keyboard, as UTF-8 that a terminal can be given: character sets,
// harmless characters, comparison without case and accents, columns.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrelctl {

/// Character sets of labels, as ETSI TS 101 756 numbers them. Text of any other set is read as
/// UTF-8 if it is valid, else as EBU Latin.
inline constexpr unsigned charset_ebu_latin = 0;
inline constexpr unsigned charset_ucs2 = 6;
inline constexpr unsigned charset_utf8 = 15;
inline constexpr unsigned charset_unknown = 16;

/// The code points of UTF-8; U+FFFD for each byte that is not part of any.
std::u32string decode_utf8(std::string_view utf8);
std::string encode_utf8(std::u32string_view code_points);

/// One code point for each character of `bytes`, as transmitted in `charset`: what the positions of
/// tags count. Not harmless yet.
std::u32string decode_characters(std::string_view bytes, unsigned charset);

/// UTF-8 that can be printed, from any source: a blank for each control character or line end,
/// nothing for an invisible or direction character, U+FFFD for what is not a character, no blanks
/// at the end.
std::string make_harmless(std::u32string_view code_points);
std::string make_harmless(std::string_view utf8);
/// The bytes of a label, as transmitted in `charset`, as harmless UTF-8.
std::string decode_label(std::string_view bytes, unsigned charset);

/// A part of a text and what it is, as DL Plus and RadioText Plus transmit it.
struct Text_tag {
  unsigned content_type = 0;
  std::size_t start = 0;          ///< its first character
  std::size_t length_marker = 0;  ///< characters that follow the first one
};
/// Cut what `tag` marks out of `text`, harmless and without blanks around it, into `title` or
/// `artist`. A tag of another content type, or beyond the text, changes nothing.
void read_tag(const Text_tag& tag, std::u32string_view text, std::string& title,
              std::string& artist);

/// For comparing without case and accents: "hohenweg" for "Höhenweg".
std::string fold(std::string_view utf8);
/// Columns of a terminal.
std::size_t count_columns(std::string_view utf8);
/// `utf8` with blanks after it (or before it), to `columns` columns.
std::string pad(std::string_view utf8, std::size_t columns, bool to_the_right = false);

}  // namespace kestrelctl
