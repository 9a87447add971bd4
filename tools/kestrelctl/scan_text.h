// SPDX-License-Identifier: GPL-3.0-or-later
//
// Reads the text of a scan file as JSON. kestrel writes answers and labels nearly as they are, so a
// quote too many, a backslash, a control character or a byte that is no UTF-8 can make its file
// invalid. Such a file is mended: a string ends at the first quote behind which stands what kestrel
// writes next.
#pragma once

#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "kestrelctl/unreadable.h"

namespace kestrelctl {

struct Scan_document {
  /// Its labels are the bytes as transmitted, and no text yet.
  nlohmann::json json;
  std::vector<Repair> repairs;
};

/// Throws Unreadable with "line N, column N: ..." for a text that cannot be mended.
Scan_document parse_scan_text(std::string_view text);

}  // namespace kestrelctl
