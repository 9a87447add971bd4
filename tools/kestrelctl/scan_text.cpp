// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/scan_text.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

using nlohmann::json;

/// A string that kestrel writes as it is. What it writes next tells where the string ends.
struct Raw_member {
  std::string_view key;
  std::string_view next_key;
  std::size_t most_bytes;     ///< as written
  bool has_escaped_quotes;    ///< a quote is written as \"
  bool ends_object = false;   ///< next_key stands behind the object's end
  bool occurs_again = false;  ///< more than once in a file
};
constexpr std::size_t longest_answer = 65536;
constexpr std::size_t longest_label = 32;  // 16 bytes, all of them quotes
constexpr std::array raw_members{
    Raw_member{"StreetNo", "Street", longest_answer, false},
    Raw_member{"Street", "PostalCode", longest_answer, false},
    Raw_member{"PostalCode", "City", longest_answer, false},
    Raw_member{"City", "Country", longest_answer, false},
    Raw_member{"Country", "Floor", longest_answer, false},
    Raw_member{"Floor", "gps_latitude", longest_answer, false},
    Raw_member{"gps_latitude", "gps_longitude", longest_answer, false},
    Raw_member{"gps_longitude", "ensembleList", longest_answer, false, true},
    Raw_member{"Label", "ComponentList", longest_label, true, false, true}};

/// Reads on through a text: each step takes what it expects, or nothing.
struct Cursor {
  std::string_view text;
  std::size_t at;

  bool take(char expected) {
    while (at < text.size() && std::string_view(" \t\r\n").find(text[at]) != std::string::npos) {
      ++at;
    }
    if (at >= text.size() || text[at] != expected) return false;
    ++at;
    return true;
  }
  bool take_key(std::string_view key) {
    if (!take('"') || !text.substr(at).starts_with(key)) return false;
    at += key.size();
    return at < text.size() && text[at++] == '"' && take(':');
  }
};

/// Where the string of `member` that begins at `begin` ends: at the first quote that what follows
/// it in kestrel's files follows here, too.
std::optional<std::size_t> find_end(std::string_view text, std::size_t begin,
                                    const Raw_member& member) {
  const auto window = text.substr(0, std::min(text.size(), begin + member.most_bytes + 1));
  for (auto quote = window.find('"', begin); quote != std::string_view::npos;
       quote = window.find('"', quote + 1)) {
    Cursor behind{text, quote + 1};
    const bool ends = !member.ends_object || behind.take('}');
    if (ends && behind.take(',') && behind.take_key(member.next_key)) return quote;
  }
  return std::nullopt;
}

/// The bytes of a string as kestrel had them before it wrote them.
std::string read_raw(std::string_view written, const Raw_member& member) {
  std::string bytes;
  for (std::size_t i = 0; i < written.size(); ++i) {
    const bool is_escape = member.has_escaped_quotes && written.substr(i).starts_with("\\\"");
    bytes += written[is_escape ? ++i : i];
  }
  return bytes;
}

/// Why a string is no JSON as it was written; empty if it is.
std::string find_fault(std::string_view written, const Raw_member& member) {
  const auto bytes = read_raw(written, member);
  const auto has = [&bytes](auto is) { return std::ranges::any_of(bytes, is); };
  if (has([](char c) { return c == '\\'; })) return "a backslash";
  if (!member.has_escaped_quotes && has([](char c) { return c == '"'; })) return "a quote";
  if (has([](char c) { return static_cast<unsigned char>(c) < 0x20; }))
    return "a control character";
  if (encode_utf8(decode_utf8(bytes)) != bytes) return "bytes that are no UTF-8";
  return "";
}

/// A byte as the code point of its number, which JSON can always carry; narrow() takes it back.
void append_widened(std::string& mended, char byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  if (value >= 0x20 && value < 0x7F && byte != '"' && byte != '\\') {
    mended += byte;
    return;
  }
  mended += "\\u00";
  mended += digits[value >> 4U];
  mended += digits[value & 0xFU];
}

void narrow(json& object, std::string_view key) {
  if (!object.is_object()) return;
  const auto member = object.find(key);
  if (member == object.end() || !member->is_string()) return;
  std::string bytes;
  for (const char32_t c : decode_utf8(member->get_ref<const std::string&>())) {
    if (c > 0xFF) return;  // it was not widened
    bytes += static_cast<char>(c);
  }
  *member = std::move(bytes);
}

json* find_member(json& object, std::string_view key) {
  if (!object.is_object()) return nullptr;
  const auto member = object.find(key);
  return member == object.end() ? nullptr : &*member;
}

/// A text in which each raw string is valid JSON.
class Mender {
 public:
  explicit Mender(std::string_view text) : text_(text) {
    while (at_ < text_.size()) {
      const auto c = text_[at_];
      if (c == '"') {
        take_string();
      } else {
        mended_ += c;
        ++at_;
      }
    }
  }

  [[nodiscard]] const std::string& mended() const { return mended_; }
  [[nodiscard]] const std::vector<Repair>& repairs() const { return repairs_; }
  /// Where a byte of the mended text comes from.
  [[nodiscard]] std::size_t find_original(std::size_t offset) const {
    const auto shift = std::ranges::upper_bound(shifts_, offset, {}, &Shift::mended);
    if (shift == shifts_.begin()) return offset;
    return std::min(text_.size(), offset - std::prev(shift)->mended + std::prev(shift)->original);
  }
  /// Give the strings of `document`, which was parsed from the mended text, their bytes again.
  void restore(json& document) const {
    if (auto* location = find_member(document, "Location")) {
      for (const auto& member : raw_members) {
        if (!member.occurs_again && is_in(mended_keys_, member.key)) narrow(*location, member.key);
      }
    }
    auto* ensembles = find_member(document, "ensembleList");
    if (ensembles == nullptr || !is_in(mended_keys_, "Label")) return;
    for (auto& ensemble : *ensembles) {
      auto* list = find_member(ensemble, "DigitalServiceList");
      auto* services = list == nullptr ? nullptr : find_member(*list, "ServiceList");
      if (services == nullptr || !services->is_array()) continue;
      for (auto& service : *services) narrow(service, "Label");
    }
  }

 private:
  /// From here on the mended text runs ahead of the other.
  struct Shift {
    std::size_t mended;
    std::size_t original;
  };

  using Keys = std::vector<std::string_view>;
  static bool is_in(const Keys& keys, std::string_view key) {
    return std::ranges::find(keys, key) != keys.end();
  }

  /// A key with its raw string, or else any string.
  void take_string() {
    for (const auto& member : raw_members) {
      if (is_in(tried_keys_, member.key)) continue;
      Cursor cursor{text_, at_};
      if (!cursor.take_key(member.key) || !cursor.take('"')) continue;
      // Its end may be searched for through all of the text: once.
      if (!member.occurs_again) tried_keys_.push_back(member.key);
      const auto end = find_end(text_, cursor.at, member);
      if (!end) break;
      mend(cursor.at, *end, member);
      return;
    }
    do {
      mended_ += text_[at_];
      if (text_[at_] == '\\' && at_ + 1 < text_.size()) mended_ += text_[++at_];
      ++at_;
    } while (at_ < text_.size() && text_[at_] != '"');
    if (at_ < text_.size()) mended_ += text_[at_++];
  }

  void mend(std::size_t begin, std::size_t end, const Raw_member& member) {
    const auto written = text_.substr(begin, end - begin);
    if (auto fault = find_fault(written, member); !fault.empty()) {
      line_ += static_cast<std::size_t>(
          std::ranges::count(text_.substr(counted_, begin - counted_), '\n'));
      counted_ = begin;
      repairs_.push_back({line_, std::string(member.key), std::move(fault)});
    }
    mended_ += text_.substr(at_, begin - at_);
    for (const char byte : read_raw(written, member)) append_widened(mended_, byte);
    mended_ += '"';
    at_ = end + 1;
    shifts_.push_back({mended_.size(), at_});
    if (!is_in(mended_keys_, member.key)) mended_keys_.push_back(member.key);
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t line_ = 1;  ///< that `counted_` stands in
  std::size_t counted_ = 0;
  std::string mended_;
  std::vector<Repair> repairs_;
  std::vector<Shift> shifts_;
  Keys tried_keys_, mended_keys_;
};

/// "line N, column N: why", with the byte of `text` that the library stumbled over.
std::string describe(std::string_view text, std::size_t offset, std::string_view what) {
  const auto before = text.substr(0, std::min(offset, text.size()));
  const auto line = 1 + std::ranges::count(before, '\n');
  const auto column = 1 + before.size() - (before.rfind('\n') + 1);
  // The library's own position counts in the mended text.
  const auto position = what.find(", column ");
  const auto reason = position == std::string_view::npos ? position : what.find(": ", position);
  if (reason != std::string_view::npos) what.remove_prefix(reason + 2);
  constexpr std::size_t shown = 120;
  return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " +
         make_harmless(what.substr(0, shown)) + (what.size() > shown ? "..." : "");
}

}  // namespace

Scan_document parse_scan_text(std::string_view text) {
  if (auto valid = json::parse(text, nullptr, false); !valid.is_discarded()) {
    return {.json = std::move(valid), .repairs = {}};
  }
  const Mender mender(text);
  try {
    Scan_document document{.json = json::parse(mender.mended()), .repairs = mender.repairs()};
    mender.restore(document.json);
    return document;
  } catch (const json::parse_error& error) {
    const auto offset = mender.find_original(error.byte == 0 ? 0 : error.byte - 1);
    throw Unreadable(describe(text, offset, error.what()));
  }
}

}  // namespace kestrelctl
