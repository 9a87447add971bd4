// SPDX-License-Identifier: GPL-3.0-or-later
//
// Simulated time, and its tie to the machine's clocks when delays are real.
#include "sim/clock.h"

#include <algorithm>
#include <ctime>

namespace sim {
namespace {

using namespace std::chrono_literals;

// A date whose month, day, hour, minute and second all differ, so that fields that are mixed up
// show.
constexpr std::chrono::sys_seconds first_utc =
    std::chrono::sys_days{std::chrono::year{2024} / 3 / 5} + 9h + 47min + 21s;

}  // namespace

Clock::Clock(bool is_virtual, Time now)
    : is_virtual_(is_virtual),
      now_(now),
      start_(now),
      utc_at_zero_(is_virtual ? std::chrono::sys_time<Time>{first_utc}
                              : std::chrono::system_clock::now() - now) {}

void Clock::advance(Time duration) {
  now_ += duration;
  if (!is_virtual_) {
    now_ = std::max<Time>(now_, start_ + (std::chrono::steady_clock::now() - real_start_));
  }
}

void Clock::wait(Time duration) {
  waited_ += duration;
  if (is_virtual_) {
    advance(duration);
    return;
  }
  const auto began = std::chrono::steady_clock::now();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  const timespec request = {.tv_sec = static_cast<std::time_t>(seconds.count()),
                            .tv_nsec = static_cast<long>((duration - seconds).count())};
  (void)::nanosleep(&request, nullptr);
  advance(std::chrono::steady_clock::now() - began);
}

std::chrono::sys_seconds Clock::utc(Time at) const {
  return std::chrono::floor<std::chrono::seconds>(utc_at_zero_ + at);
}

}  // namespace sim
