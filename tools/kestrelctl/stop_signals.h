// SPDX-License-Identifier: GPL-3.0-or-later
//
// The signals that ask a program to end, taken when it suits: a kestrel that runs is not disturbed.
#pragma once

#include <chrono>
#include <csignal>
#include <ctime>

namespace kestrelctl {

/// From its construction on SIGINT, SIGTERM, SIGHUP and SIGQUIT end nothing by themselves.
class Stop_signals {
 public:
  Stop_signals() {
    sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&signals_, signal);
    sigprocmask(SIG_BLOCK, &signals_, nullptr);
  }

  /// Wait so long, or until there was one of them: false from then on.
  bool pause(std::chrono::milliseconds time) {
    if (is_stopped_) return false;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const std::chrono::nanoseconds rest = time - seconds;
    const timespec patience{.tv_sec = static_cast<time_t>(seconds.count()),
                            .tv_nsec = static_cast<long>(rest.count())};
    is_stopped_ = sigtimedwait(&signals_, nullptr, &patience) > 0;
    return !is_stopped_;
  }

 private:
  sigset_t signals_{};
  bool is_stopped_ = false;
};

}  // namespace kestrelctl
