// SPDX-License-Identifier: GPL-3.0-or-later
//
// Text from the air and from a keyboard, as UTF-8 that a terminal can be given: character sets,
// harmless characters, comparison without case, columns.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrelctl {

/// What `SICharset` says of a label; labels of another set are read as EBU Latin.
inline constexpr unsigned charset_ebu_latin = 0;
inline constexpr unsigned charset_utf8 = 15;

/// The code points of UTF-8; U+FFFD for each byte that is not part of any.
std::u32string decode_utf8(std::string_view utf8);
std::string encode_utf8(std::u32string_view code_points);

/// UTF-8 with a blank for each control or direction character, U+FFFD for what is no UTF-8, and
/// without blanks at its end: it can be printed, whoever wrote it.
std::string make_harmless(std::string_view utf8);
/// The bytes of a label, as transmitted in `charset`, as harmless UTF-8.
std::string decode_label(std::string_view bytes, unsigned charset);

/// For comparing without case; of letters beyond ASCII if the process has a UTF-8 locale.
std::string fold_case(std::string_view utf8);
/// Columns of a terminal, at least 0.
std::size_t count_columns(std::string_view utf8);
/// `utf8` with blanks behind it (or before it), to `columns` columns.
std::string pad(std::string_view utf8, std::size_t columns, bool to_the_right = false);

}  // namespace kestrelctl
