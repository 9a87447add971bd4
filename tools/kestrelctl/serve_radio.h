// SPDX-License-Identifier: GPL-3.0-or-later
//
// One Radio for many threads: they take turns, and those who listen hear what it does from one
// thread, which looks at the receiver only while there are any.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>

#include "kestrelctl/now_json.h"
#include "kestrelctl/radio.h"
#include "kestrelctl/serve_rules.h"

namespace kestrelctl {

/// One of at most `most`, while it exists. Throws Failure if there are that many already.
class Place {
 public:
  Place(std::atomic<unsigned>& taken, unsigned most);
  ~Place() { --taken_; }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
  Place(Place&&) = delete;
  Place& operator=(Place&&) = delete;

 private:
  std::atomic<unsigned>& taken_;
};

class Shared_radio {
 public:
  static constexpr unsigned most_listeners = 40;
  static constexpr unsigned most_asking = 16;

  /// `store` is the caller's and outlives this.
  explicit Shared_radio(Store& store) : store_(store), radio_(store) {}

  // Each of these answers in JSON, as docs/json.md has it, and throws Failure, also when too many
  // threads wait for the radio.

  Json status();
  Json stations();
  Json presets();
  /// The presets after a change of them, else what the radio does then.
  Json carry_out(const Wish& wish);

  /// Look at the receiver for the listeners until a stop signal comes or `stop` is requested.
  void watch(const std::stop_token& stop);

  /// One who hears of every change. Throws Failure if there are too many.
  class Listener {
   public:
    explicit Listener(Shared_radio& radio)
        : radio_(radio), place_(radio.listeners_, most_listeners) {}
    /// Waits a moment for news; the next event of the stream, empty if there is nothing to say.
    std::string next();

   private:
    Shared_radio& radio_;
    Place place_;
    std::uint64_t version_ = 0;
    std::chrono::steady_clock::time_point spoken_ = std::chrono::steady_clock::now();
  };

 private:
  Json look();
  void publish(const Json& news);
  [[nodiscard]] Station find(const Station_reference& wanted) const;

  Store& store_;
  std::mutex radio_mutex_;  ///< for both
  Radio radio_;
  std::atomic<unsigned> asking_ = 0;
  std::atomic<unsigned> listeners_ = 0;

  std::mutex news_mutex_;  ///< for what follows
  std::condition_variable change_;
  Json news_;
  std::uint64_t version_ = 0;  ///< 0: nothing is known
};

/// Valid UTF-8 in one line, whatever is in it.
std::string to_text(const Json& value);

}  // namespace kestrelctl
