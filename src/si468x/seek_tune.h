// SPDX-License-Identifier: GPL-3.0-or-later
//
// The wait that follows every tune and every seek, of DAB and of FM.
#pragma once

#include <cstdint>

#include "si468x/error_codes.h"

namespace si468x {

/// Poll the status until it is free of errors and shows seek/tune complete: at once, then every 100
/// ms, 100 times (about 10 s). An error does not end the wait. 0 when complete. When the polls are
/// used up, `timeout_code` is stored and the last poll's outcome returned: 0 when it was merely not
/// complete, else -1 or -2. What is complete is not acknowledged.
std::int16_t wait_for_seek_tune(Error timeout_code);

}  // namespace si468x
