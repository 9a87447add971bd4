// SPDX-License-Identifier: GPL-3.0-or-later
//
// A record of the chip's answers is a plain struct and a table of its fields: where each is in the
// reply, its JSON key and its label. Reading, text report and JSON are the loops below over that
// table.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <span>
#include <string_view>
#include <type_traits>

#include "si468x/protocol.h"
#include "si468x/wire.h"

namespace si468x {

/// The most characters that a JSON key has.
inline constexpr std::size_t longest_key = 24;

/// A JSON key; a longer one does not compile.
struct Json_key {
  consteval Json_key(const char* key) : text(key) {
    if (text.size() > longest_key) throw "longer than longest_key";
  }
  std::string_view text;
};

template <class Record>
struct Field {
  Wire_bits where;
  Json_key key;                 ///< empty: not in the JSON
  const char* label = nullptr;  ///< label in the text report, or null: not in the report
  void (*store)(Record&, std::uint32_t);
  std::int64_t (*load)(const Record&);  ///< wide enough for every field, signed or not
};

/// The rows of a table, for functions that take the record, too, and deduce its type from there.
template <class Record>
using Fields = std::span<const std::type_identity_t<Field<Record>>>;

template <class Member>
struct Member_of;
template <class Record, class Value>
struct Member_of<Value Record::*> {
  using record = Record;
  using value = Value;
};

/// A row of a field table for `Member`, such as `&Si468x_time::year`: with a JSON key and a label
/// ...
template <auto Member>
constexpr auto field(Wire_bits where, Json_key key, const char* label) {
  using Record = typename Member_of<decltype(Member)>::record;
  using Value = typename Member_of<decltype(Member)>::value;
  return Field<Record>{
      where, key, label,
      [](Record& record, std::uint32_t value) { record.*Member = static_cast<Value>(value); },
      [](const Record& record) { return static_cast<std::int64_t>(record.*Member); }};
}
/// ... for a record that has a text report only, or for a field that is in no report ...
template <auto Member>
constexpr auto text_field(Wire_bits where, const char* label = nullptr) {
  return field<Member>(where, "", label);
}
/// ... and for a record that is written as JSON only.
template <auto Member>
constexpr auto json_field(Wire_bits where, const Json_key& key) {
  return field<Member>(where, key, nullptr);
}

/// Does every field of the table lie within a frame of `frame_bytes`? For a static_assert after
/// each table.
constexpr bool fits(const auto& fields, std::size_t frame_bytes) {
  return std::ranges::all_of(
      fields, [=](const auto& field) { return field.where.last_byte() < frame_bytes; });
}

/// Fill the table's fields from `frame`, which must be as long as the table's `fits` was asserted
/// for.
template <class Record>
void decode(Fields<Record> fields, const std::uint8_t* frame, Record& record) {
  for (const auto& field : fields) field.store(record, field.where.read(frame));
}

/// Send `command`, read a reply of `Reply_bytes` and fill the table's fields from it. On failure
/// `code` is stored, the protocol's negative result returned, and the record stays as it was.
template <std::size_t Reply_bytes, class Record>
std::int16_t read_record(std::array<std::uint8_t, 2> command, Fields<Record> fields, Record& record,
                         Error code) {
  std::array<std::uint8_t, Reply_bytes> reply{};
  const auto outcome = send_command(command, reply);
  if (outcome < 0) return failed(code, outcome);
  decode(fields, reply.data(), record);
  return result::ok;
}

/// A line of a text report begins with its label, padded with blanks to this many columns.
inline constexpr int label_columns = 44;

/// One line of a text report; the chip's numbers are shown as unsigned 32-bit ones.
inline void print_line(const char* label, std::int64_t value) {
  std::printf("%-*s%lu\n", label_columns, label,
              static_cast<unsigned long>(static_cast<std::uint32_t>(value)));
}
inline void print_line(const char* label, const char* text) {
  std::printf("%-*s%s\n", label_columns, label, text);
}

/// One line for each field that has a label.
template <class Record>
void print_fields(Fields<Record> fields, const Record& record) {
  for (const auto& field : fields) {
    if (field.label != nullptr) print_line(field.label, field.load(record));
  }
}

/// What comes after a JSON member: another one, or the end of the object.
enum class Next { member, end };

/// One JSON member: the key in quotes, a colon, a blank, the number, a comma if another member
/// follows, and a newline. Composed first and written at once: a scan file has tens of thousands of
/// members, and a stream takes its time for every piece.
inline void write_member(std::ostream& out, Json_key key, std::int64_t value,
                         Next next = Next::member) {
  constexpr std::string_view colon = "\": ";
  constexpr std::size_t longest_number = 20;
  constexpr std::size_t longest_end = 2;
  std::array<char, 1 + longest_key + colon.size() + longest_number + longest_end> member{'"'};
  auto* end = std::copy(key.text.begin(), key.text.end(), &member[1]);
  end = std::copy(colon.begin(), colon.end(), end);
  end = std::to_chars(end, end + longest_number, value).ptr;
  if (next == Next::member) *end++ = ',';
  *end++ = '\n';
  out.write(member.data(), end - member.data());
}

/// One JSON member for each field; `next` comes after the last of them.
template <class Record>
void write_members(std::ostream& out, Fields<Record> fields, const Record& record,
                   Next next = Next::member) {
  for (const auto& field : fields) {
    const bool is_last = &field == &fields.back();
    write_member(out, field.key, field.load(record), is_last ? next : Next::member);
  }
}

/// Open a member whose value is an object: `"key": {` and a newline.
inline void open_object(std::ostream& out, const char* key) { out << '"' << key << "\": {\n"; }

}  // namespace si468x
