// SPDX-License-Identifier: GPL-3.0-or-later
//
// The dynamic label of a DAB service (ETSI EN 300 401, 7.4.5.2) and what DL Plus (ETSI TS 102 980)
// says of it, from the data packets of the playing service.
//
// A packet is two bytes of prefix, text or a command, and a byte that is neither. It may hold one
// segment, as transmitted, or a whole label of any length. Which prefix a receiver passes on with a
// whole label is not documented, so one that makes no sense is taken for text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "kestrelctl/text.h"

namespace kestrelctl {

/// What the station says: harmless UTF-8, empty where it says nothing.
struct Label_state {
  std::string text;
  std::string title;   ///< of what plays, as `text` names it
  std::string artist;  ///< likewise
  bool operator==(const Label_state&) const = default;
};

enum class Label_change : std::uint8_t {
  nothing,
  text,     ///< a new text, its title and artist included if they are known already
  cleared,  ///< the station took its text away
  item      ///< title or artist of the text that was there before
};

class Dynamic_label {
 public:
  /// Longer text is cut off. A label has 128 bytes at most.
  static constexpr std::size_t most_text_bytes = 512;

  /// Take one packet. Any bytes will do.
  Label_change feed(std::span<const std::uint8_t> packet);
  const Label_state& state() const { return state_; }

 private:
  static constexpr std::size_t most_segments = 8;
  static constexpr std::size_t most_tags = 4;

  /// The label whose segments are being joined.
  struct Assembly {
    bool toggle = false;
    unsigned charset = 0;
    std::array<std::optional<std::string>, most_segments> segments = {};
    std::size_t count = 0;  ///< of all its segments; 0 before the last one has come
  };
  /// A DL Plus command. It belongs to the label whose toggle bit is `link`.
  struct Tags {
    bool link = false;
    bool is_item_running = false;
    std::size_t count = 0;
    std::array<Text_tag, most_tags> tags = {};
  };
  struct Packet;

  static Packet sort(std::span<const std::uint8_t> bytes);
  Label_change clear();
  Label_change take_tags(const Packet& packet);
  Label_change join(const Packet& segment);
  Label_change show(std::string_view bytes, unsigned charset, std::optional<bool> toggle);
  Label_change read_tags();

  Label_state state_;
  std::u32string characters_;   ///< of the text, as its tags count them
  std::optional<bool> toggle_;  ///< of the text, if its prefix says so
  Assembly assembly_;
  std::optional<Tags> tags_;
};

}  // namespace kestrelctl
