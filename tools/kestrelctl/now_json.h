// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the radio does, as JSON for programs: `status`, `watch`, `log` and the page say it with the
// same keys. docs/json.md describes them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "kestrelctl/radio.h"

namespace kestrelctl {

/// With its members in the order in which they are written.
using Json = nlohmann::ordered_json;

/// All keys, each time in the same order; what is not known, or not a thing of the firmware that
/// runs, is null.
Json describe_as_json(const Now& now);
/// What is known of a station without a receiver.
Json describe_as_json(const Station& station);

/// "2024-03-05T09:47:44.123Z"
std::string format_utc_ms(std::chrono::system_clock::time_point time);

}  // namespace kestrelctl
