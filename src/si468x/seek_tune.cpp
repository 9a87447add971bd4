// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/seek_tune.h"

#include <array>

#include "si468x/bus.h"
#include "si468x/protocol.h"
#include "si468x/wire.h"

namespace si468x {

std::int16_t wait_for_seek_tune(Error timeout_code) {
  constexpr unsigned poll_limit = 100;
  constexpr unsigned poll_wait_ms = 100;
  std::int16_t outcome = result::ok;
  for (unsigned poll = 0; poll < poll_limit; ++poll) {
    std::array<std::uint8_t, status_read_bytes> status{};
    outcome = Si468x_rd_reply(status.data());
    const bool complete = has_bit(status[status_0], 0);
    if (outcome == result::ok && complete) return result::ok;
    Si468x_delay_ms(poll_wait_ms);
  }
  return failed(timeout_code, outcome);
}

}  // namespace si468x
