// SPDX-License-Identifier: GPL-3.0-or-later
//
// A row of the table that scripts/bench prints, the same for every program here.
#pragma once

#include <cstdio>

/// One Markdown row: kestrel's figure, what it is compared with, and kestrel's share of that, where
/// less is better. `unit` is that of both figures; an empty `target` means that there is none.
inline void row(const char* what, double kestrel, double beside, const char* unit,
                const char* target = "") {
  std::printf("| %s | %.4g %s | %.4g %s | %.3f | %s |\n", what, kestrel, unit, beside, unit,
              kestrel / beside, target);
}
