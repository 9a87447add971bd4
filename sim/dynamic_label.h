// SPDX-License-Identifier: GPL-3.0-or-later
//
// Dynamic labels as a station sends them: ETSI EN 300 401, 7.4.5.2, with the tags of
// ETSI TS 102 980. The receiver passes their segments on, one per data packet.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/broadcast.h"

namespace sim {

/// The segments of a text and the command that tags its parts, in the order in
/// which they are sent; for an empty text the command that clears the display.
/// Each is a data packet: the two bytes of the prefix, up to 16 bytes, and a zero.
/// `toggle` differs from one text to the next.
[[nodiscard]] std::vector<std::vector<std::uint8_t>> dynamic_label_packets(const Text& text,
                                                                           bool toggle);

}  // namespace sim
