// SPDX-License-Identifier: GPL-3.0-or-later
//
// A record of the chip's answers is a plain struct and a table of its fields: where each stands in
// the reply, its JSON key and its label. Reading, text report and JSON are the loops below over
// that table.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string_view>

#include "si468x/protocol.h"
#include "si468x/wire.h"

namespace si468x {

template <class Record>
struct Field {
  Wire_bits where;
  std::string_view key;         ///< JSON key, or empty: not in the JSON
  const char* label = nullptr;  ///< label in the text report, or null: not in the report
  void (*store)(Record&, std::uint32_t) = nullptr;
  std::int64_t (*load)(const Record&) = nullptr;  ///< wide enough for every field, signed or not
};

template <class Record, std::size_t Count>
using Field_table = std::array<Field<Record>, Count>;

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
constexpr auto field(Wire_bits where, std::string_view key, const char* label) {
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
  return field<Member>(where, {}, label);
}
/// ... and for a record that is written as JSON only.
template <auto Member>
constexpr auto json_field(Wire_bits where, std::string_view key) {
  return field<Member>(where, key, nullptr);
}

/// The most characters that a JSON key has.
inline constexpr std::size_t longest_key = 24;

/// Does every field lie within a frame of `frame_bytes`, and every key within its limit? For a
/// static_assert beside each table.
template <class Record, std::size_t Count>
constexpr bool fits(const Field_table<Record, Count>& fields, std::size_t frame_bytes) {
  for (const auto& field : fields) {
    if (field.where.last_byte() >= frame_bytes || field.key.size() > longest_key) return false;
  }
  return true;
}

/// The same table with two rows exchanged, for a report whose order differs from the reply's.
template <class Record, std::size_t Count>
constexpr auto with_rows_exchanged(Field_table<Record, Count> fields, std::size_t a,
                                   std::size_t b) {
  const auto row = fields[a];
  fields[a] = fields[b];
  fields[b] = row;
  return fields;
}

/// Fill the table's fields from `frame`, which must be as long as the table's `fits` was asserted
/// for.
template <class Record, std::size_t Count>
void decode(const Field_table<Record, Count>& fields, const std::uint8_t* frame, Record& record) {
  for (const auto& field : fields) field.store(record, field.where.read(frame));
}

/// Send `command`, read a reply of `Reply_bytes` and fill the table's fields from it. On failure
/// `code` is stored, the protocol's negative result returned, and the record stays as it was.
template <std::size_t Reply_bytes, std::size_t Command_bytes, class Record, std::size_t Count>
std::int16_t read_record(const std::array<std::uint8_t, Command_bytes>& command,
                         const Field_table<Record, Count>& fields, Record& record, Error code) {
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
template <class Record, std::size_t Count>
void print_fields(const Field_table<Record, Count>& fields, const Record& record) {
  for (const auto& field : fields) {
    if (field.label != nullptr) print_line(field.label, field.load(record));
  }
}

/// One JSON member: the key (of at most `longest_key` characters) in quotes, a colon, a blank, the
/// number, and what separates it from the next (of at most two characters). Composed first and
/// written at once: a scan file has tens of thousands of members, and a stream takes its time for
/// every piece.
inline void write_member(std::ostream& out, std::string_view key, std::int64_t value,
                         std::string_view separator = ",\n") {
  constexpr std::string_view colon = "\": ";
  constexpr std::size_t longest_number = 20;
  constexpr std::size_t longest_separator = 2;
  std::array<char, 1 + longest_key + colon.size() + longest_number + longest_separator> member{'"'};
  auto* end = std::copy_n(key.data(), std::min(key.size(), longest_key), &member[1]);
  end = std::copy(colon.begin(), colon.end(), end);
  end = std::to_chars(end, end + longest_number, value).ptr;
  end = std::copy_n(separator.data(), std::min(separator.size(), longest_separator), end);
  out.write(member.data(), end - member.data());
}

/// One JSON member for each field; `last_separator` stands behind the last of them.
template <class Record, std::size_t Count>
void write_members(std::ostream& out, const Field_table<Record, Count>& fields,
                   const Record& record, std::string_view last_separator = ",\n") {
  for (std::size_t i = 0; i < Count; ++i) {
    write_member(out, fields[i].key, fields[i].load(record),
                 i + 1 < Count ? std::string_view(",\n") : last_separator);
  }
}

/// Open a member whose value is an object: `"key": {` and a newline.
inline void open_object(std::ostream& out, const char* key) { out << '"' << key << "\": {\n"; }

}  // namespace si468x
