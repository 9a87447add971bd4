// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/serve_connections.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>

#include "kestrelctl/receiver.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto request_patience = 5s;  // for all of it
constexpr auto answer_patience = 5s;   // for each part that is written
constexpr auto longest_sleep = 100ms;  // a stop signal may reach another thread
constexpr std::size_t longest_request = 8192;

class Bounded_stream : public httplib::Stream {
 public:
  explicit Bounded_stream(socket_t socket) : socket_(socket) {}

  bool is_readable() const override { return taken_ < filled_; }
  bool is_writable() const override { return wait(POLLOUT, Clock::now()); }

  ssize_t read(char* to, std::size_t size) override {
    if (taken_ == filled_) {
      if (filled_ == buffer_.size() || !wait(POLLIN, deadline_)) return -1;
      const auto bytes =
          recv(socket_, buffer_.data() + filled_, buffer_.size() - filled_, MSG_DONTWAIT);
      if (bytes <= 0) return bytes;
      filled_ += static_cast<std::size_t>(bytes);
    }
    const auto bytes = std::min(size, filled_ - taken_);
    std::copy_n(buffer_.data() + taken_, bytes, to);
    taken_ += bytes;
    return static_cast<ssize_t>(bytes);
  }

  ssize_t write(const char* from, std::size_t size) override {
    const auto deadline = Clock::now() + answer_patience;
    for (std::size_t sent = 0; sent < size;) {
      if (!wait(POLLOUT, deadline)) return -1;
      const auto bytes = send(socket_, from + sent, size - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (bytes < 0 && errno != EAGAIN) return -1;
      if (bytes > 0) sent += static_cast<std::size_t>(bytes);
    }
    return static_cast<ssize_t>(size);
  }

  void get_remote_ip_and_port(std::string& address, int& /*port*/) const override {
    tell(getpeername, address);
  }
  void get_local_ip_and_port(std::string& address, int& /*port*/) const override {
    tell(getsockname, address);
  }
  socket_t socket() const override { return socket_; }

 private:
  /// False when the time is over, or the program is to end.
  bool wait(short events, Clock::time_point deadline) const {
    while (!is_stopped()) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      pollfd descriptor{.fd = socket_, .events = events, .revents = 0};
      const auto time = std::clamp<std::chrono::milliseconds>(left, 0ms, longest_sleep);
      if (poll(&descriptor, 1, static_cast<int>(time.count())) > 0) return true;
      if (left <= 0ms) return false;
    }
    return false;
  }

  /// The address alone: nobody here asks for ports.
  template <class Get_name>
  void tell(Get_name get_name, std::string& address) const {
    sockaddr_storage name{};
    socklen_t size = sizeof(name);
    std::array<char, NI_MAXHOST> host{};
    auto* generic = reinterpret_cast<sockaddr*>(&name);
    if (get_name(socket_, generic, &size) == 0 &&
        getnameinfo(generic, size, host.data(), host.size(), nullptr, 0, NI_NUMERICHOST) == 0) {
      address = host.data();
    }
  }

  socket_t socket_;
  Clock::time_point deadline_ = Clock::now() + request_patience;
  std::array<char, longest_request> buffer_{};
  std::size_t taken_ = 0;
  std::size_t filled_ = 0;
};

/// The threads; the one that accepts connections looks here whether it is to end.
class Pool : public httplib::ThreadPool {
 public:
  explicit Pool(httplib::Server& server)
      : ThreadPool(Bounded_server::most_waiting + Bounded_server::most_working), server_(server) {}
  void enqueue(std::function<void()> job) override {
    ThreadPool::enqueue(std::move(job));
    on_idle();
  }
  void on_idle() override {
    if (is_stopped()) server_.stop();
  }

 private:
  httplib::Server& server_;
};

struct Current {
  Bounded_server* server;
  socket_t socket;
};
thread_local Current current{};

}  // namespace

Bounded_server::Bounded_server() {
  new_task_queue = [this] { return new Pool(*this); };
  set_idle_interval(0, std::chrono::microseconds(longest_sleep).count());
  set_payload_max_length(longest_request);
  set_tcp_nodelay(true);
  // The library's own would let two servers share one port.
  set_socket_options([](socket_t socket) {
    const int on = 1;
    (void)setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  });
}

bool Bounded_server::process_and_close_socket(socket_t socket) {
  current = {this, socket};
  enter(socket);
  Bounded_stream stream(socket);
  bool is_closed = false;
  const bool is_answered = process_request(stream, true, is_closed, nullptr);
  leave(socket);
  (void)shutdown(socket, SHUT_RDWR);
  (void)close(socket);
  return is_answered;
}

void Bounded_server::enter(socket_t socket) {
  const std::scoped_lock lock(mutex_);
  if (waiting_.size() >= most_waiting) {
    // Its thread notices at once, and closes it.
    (void)shutdown(waiting_.front(), SHUT_RDWR);
    waiting_.pop_front();
  }
  waiting_.push_back(socket);
}

void Bounded_server::leave(socket_t socket) {
  const std::scoped_lock lock(mutex_);
  waiting_.remove(socket);
}

Bounded_server::Working::Working() { current.server->leave(current.socket); }
Bounded_server::Working::~Working() { current.server->enter(current.socket); }

}  // namespace kestrelctl
