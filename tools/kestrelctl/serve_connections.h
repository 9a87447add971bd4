// SPDX-License-Identifier: GPL-3.0-or-later
//
// The library's web server, with bounds for what a stranger can take: one request per connection,
// few bytes, a time by which all of them must have come, and a number of connections.
#pragma once

// As the shared library of Debian is built; its classes have other sizes without them.
#define CPPHTTPLIB_OPENSSL_SUPPORT
#define CPPHTTPLIB_ZLIB_SUPPORT
#define CPPHTTPLIB_BROTLI_SUPPORT
#include <httplib.h>

#include <list>
#include <mutex>

namespace kestrelctl {

/// A thread per connection, so many that one is always free: a connection either waits for its
/// client, in which case the oldest gives way, or is counted by the one that works for it.
class Bounded_server : public httplib::Server {
 public:
  static constexpr unsigned most_waiting = 24;
  static constexpr unsigned most_working = 56;  ///< the caller sees to it

  Bounded_server();

  /// While it exists, the connection of this thread is not cut in favour of a newer one.
  class Working {
   public:
    Working();
    ~Working();
    Working(const Working&) = delete;
    Working& operator=(const Working&) = delete;
    Working(Working&&) = delete;
    Working& operator=(Working&&) = delete;
  };

 private:
  bool process_and_close_socket(socket_t socket) override;
  void enter(socket_t socket);
  void leave(socket_t socket);

  std::mutex mutex_;
  std::list<socket_t> waiting_;  ///< for their clients, the oldest first
};

}  // namespace kestrelctl
