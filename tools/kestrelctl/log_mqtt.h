// SPDX-License-Identifier: GPL-3.0-or-later
//
// The connection to an MQTT broker. It has a thread of its own, in which it is made, lost and made
// again; nothing here waits for the network, but the end for a second at most.
#pragma once

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "kestrelctl/log_rows.h"
#include "kestrelctl/log_topics.h"

struct mosquitto;
struct mosquitto_message;

namespace kestrelctl {

struct Mqtt_files {
  std::filesystem::path password;     ///< its first line counts; empty: no password
  std::filesystem::path authorities;  ///< whom to believe who the broker is; empty: the system's
};

class Broker {
 public:
  /// The topic below a prefix that was given, and the payload.
  using Command = std::pair<std::string, std::string>;

  /// Commands are taken from the topics below `prefix` that end with "/set", if `takes_commands`.
  /// "PREFIX/availability" becomes "offline" with the connection. Throws Failure for files that
  /// cannot be read.
  Broker(Mqtt_address address, const Mqtt_files& files, std::string prefix, bool takes_commands);
  /// Says "offline", and ends the connection.
  ~Broker();
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;
  Broker(Broker&&) = delete;
  Broker& operator=(Broker&&) = delete;

  /// Publishes a retained message if it has changed, and again whenever the connection is made
  /// anew.
  void retain(const std::string& topic, const std::string& payload);
  /// Publishes a message now or never.
  void send(const std::string& topic, const std::string& payload);
  /// The oldest command that was not taken yet: "preset" for one, and its payload of at most 200
  /// bytes.
  std::optional<Command> take_command();

 private:
  struct Destroy {
    void operator()(mosquitto* client) const;
  };

  [[nodiscard]] std::string availability() const { return prefix_ + "/availability"; }
  void set_up(const Mqtt_files& files);
  /// Under `mutex_`. What fails is published again with the next connection.
  void publish(const std::string& topic, const std::string& payload, bool is_retained);
  // The thread, and what the library calls in it.
  void run();
  void connected(int refusal);
  void received(const mosquitto_message& message);

  const Mqtt_address address_;
  const std::string prefix_;
  const bool takes_commands_;
  std::unique_ptr<mosquitto, Destroy> client_;
  Trouble trouble_;      ///< the thread's
  std::string refusal_;  ///< the thread's: what the broker said against the connection

  std::mutex mutex_;  ///< for all below
  std::condition_variable wake_;
  bool is_ending_ = false;
  bool has_ended_ = false;
  bool is_connected_ = false;
  std::map<std::string, std::string> retained_;
  std::deque<Command> commands_;
  std::thread thread_;
};

}  // namespace kestrelctl
