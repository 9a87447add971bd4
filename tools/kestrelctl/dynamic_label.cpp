// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/dynamic_label.h"

#include <algorithm>
#include <utility>

namespace kestrelctl {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t prefix_bytes = 2;
constexpr std::size_t trailing_bytes = 1;

// The first byte of the prefix. Its lower half is a command, or the length of the text less one.
constexpr std::uint8_t toggle_bit = 0x80;
constexpr std::uint8_t first_bit = 0x40;
constexpr std::uint8_t last_bit = 0x20;
constexpr std::uint8_t command_bit = 0x10;
constexpr std::uint8_t remove_label = 0x01;
constexpr std::uint8_t dl_plus = 0x02;
// The upper half of the second byte is the character set of a label's first segment, the number of
// any other one, or the link bit of a DL Plus command, whose length less one is the lower half.
constexpr std::uint8_t link_bit = 0x80;

std::uint8_t upper_half(std::uint8_t byte) { return byte >> 4; }
std::uint8_t lower_half(std::uint8_t byte) { return byte & 0x0FU; }
bool is_ascii(std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; }

std::string_view as_text(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

struct Dynamic_label::Packet {
  enum class Kind : std::uint8_t { unknown, whole_text, segment, clear, tags };
  Kind kind = Kind::unknown;
  Bytes body = {};                     ///< text, or a DL Plus command
  unsigned charset = charset_unknown;  ///< of a whole text or of a first segment
  std::optional<bool> toggle = {};     ///< of the label that it is, or that its tags belong to
  std::size_t number = 0;              ///< of a segment
  bool is_last = false;                ///< a segment
};

Dynamic_label::Packet Dynamic_label::sort(Bytes bytes) {
  using Kind = Packet::Kind;
  if (bytes.size() < prefix_bytes) return {};
  const auto first = bytes[0];
  const auto second = bytes[1];
  const auto body = bytes.subspan(prefix_bytes);
  const bool looks_like_text = is_ascii(first) && is_ascii(second);
  const Packet plain_text{.kind = Kind::whole_text, .body = bytes};

  if ((first & command_bit) != 0) {
    const auto is_zero = [](std::uint8_t byte) { return byte == 0; };
    if (lower_half(first) == remove_label &&
        (body.size() <= trailing_bytes || std::ranges::all_of(body, is_zero))) {
      return {.kind = Kind::clear};
    }
    const std::size_t length = lower_half(second) + 1U;
    // The only kind of DL Plus command there is has number 0.
    if (lower_half(first) == dl_plus && body.size() >= length && upper_half(body[0]) == 0) {
      return {.kind = Kind::tags, .body = body.first(length), .toggle = (second & link_bit) != 0};
    }
    return looks_like_text ? plain_text : Packet{};
  }

  const std::size_t length = lower_half(first) + 1U;
  const bool has_its_length = body.size() == length || body.size() == length + trailing_bytes;
  const auto number = upper_half(second);
  if (lower_half(second) != 0 || (looks_like_text && !has_its_length && number != charset_ucs2)) {
    return plain_text;
  }
  const bool is_first = (first & first_bit) != 0;
  const bool is_last = (first & last_bit) != 0;
  const bool is_numbered = number > 0 && number < most_segments;
  const bool is_segment = is_first ? !is_last : is_numbered;
  // What is longer than a segment is a whole label under the prefix of one of its segments.
  if (is_segment && body.size() < length) return {};
  const auto text_bytes =
      has_its_length ? length : body.size() - std::min(body.size(), trailing_bytes);
  return {.kind = is_segment && has_its_length ? Kind::segment : Kind::whole_text,
          .body = body.first(text_bytes),
          .charset = number,
          .toggle = (first & toggle_bit) != 0,
          .number = is_first ? std::size_t{0} : number,
          .is_last = is_last};
}

Label_change Dynamic_label::feed(Bytes packet) {
  const auto sorted = sort(packet);
  switch (sorted.kind) {
    case Packet::Kind::whole_text:
      assembly_ = {};
      return show(as_text(sorted.body), sorted.charset, sorted.toggle);
    case Packet::Kind::segment:
      return join(sorted);
    case Packet::Kind::clear:
      return clear();
    case Packet::Kind::tags:
      return take_tags(sorted);
    case Packet::Kind::unknown:
      break;
  }
  return Label_change::nothing;
}

Label_change Dynamic_label::clear() {
  const bool had_text = !state_.text.empty();
  *this = {};
  return had_text ? Label_change::cleared : Label_change::nothing;
}

Label_change Dynamic_label::join(const Packet& segment) {
  const auto text = as_text(segment.body);
  const auto is_contradiction = [&] {
    const auto& known = assembly_.segments[segment.number];
    return segment.toggle != assembly_.toggle || (known && *known != text) ||
           (segment.number == 0 && known && segment.charset != assembly_.charset) ||
           (assembly_.count != 0 && segment.number >= assembly_.count) ||
           (segment.is_last && assembly_.count != 0 && assembly_.count != segment.number + 1);
  };
  // Not every station toggles the bit for a new label.
  if (is_contradiction()) assembly_ = {};
  assembly_.toggle = segment.toggle.value_or(false);
  assembly_.segments[segment.number] = text;
  if (segment.number == 0) assembly_.charset = segment.charset;
  if (segment.is_last) assembly_.count = segment.number + 1;
  std::string whole;
  for (const auto& piece : std::span(assembly_.segments).first(assembly_.count)) {
    if (!piece) return Label_change::nothing;
    whole += *piece;
  }
  if (assembly_.count == 0) return Label_change::nothing;
  return show(whole, assembly_.charset, segment.toggle);
}

Label_change Dynamic_label::show(std::string_view bytes, unsigned charset,
                                 std::optional<bool> toggle) {
  auto characters = decode_characters(bytes.substr(0, most_text_bytes), charset);
  auto text = make_harmless(characters);
  const bool is_same = text == state_.text;
  const bool is_repeated = is_same && toggle == toggle_;
  if (is_repeated) return Label_change::nothing;
  // Tags may come ahead of the label that they belong to.
  const bool has_tags = tags_ && toggle != toggle_ && toggle == tags_->link;
  if (!has_tags) tags_.reset();
  toggle_ = toggle;
  characters_ = std::move(characters);
  if (!is_same) state_ = {.text = std::move(text), .title = {}, .artist = {}};
  const auto change = has_tags ? read_tags() : Label_change::nothing;
  if (is_same) return change;
  return state_.text.empty() ? Label_change::cleared : Label_change::text;
}

Label_change Dynamic_label::take_tags(const Packet& packet) {
  constexpr std::uint8_t item_running_bit = 0x04;
  constexpr std::uint8_t count_bits = 0x03;
  constexpr std::size_t tag_bytes = 3;
  constexpr std::uint8_t value_bits = 0x7F;
  Tags tags;
  tags.link = packet.toggle.value_or(false);
  tags.is_item_running = (packet.body[0] & item_running_bit) != 0;
  const auto list = packet.body.subspan(1);
  tags.count = std::min((packet.body[0] & count_bits) + std::size_t{1}, list.size() / tag_bytes);
  for (std::size_t i = 0; i < tags.count; ++i) {
    const auto value = [&](std::size_t at) -> unsigned {
      return list[tag_bytes * i + at] & value_bits;
    };
    tags.tags[i] = {.content_type = value(0), .start = value(1), .length_marker = value(2)};
  }
  tags_ = tags;
  return toggle_ == tags.link ? read_tags() : Label_change::nothing;
}

Label_change Dynamic_label::read_tags() {
  std::string title;
  std::string artist;
  for (const auto& tag : std::span(tags_->tags).first(tags_->is_item_running ? tags_->count : 0)) {
    read_tag(tag, characters_, title, artist);
  }
  if (title == state_.title && artist == state_.artist) return Label_change::nothing;
  state_.title = std::move(title);
  state_.artist = std::move(artist);
  return Label_change::item;
}

}  // namespace kestrelctl
