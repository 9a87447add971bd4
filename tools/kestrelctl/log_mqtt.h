// SPDX-License-Identifier: GPL-3.0-or-later
//
// The connection to an MQTT broker. It has a thread of its own, in which it is made, lost and made
// again; nothing here waits for the network, but the end for a second at most.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "kestrelctl/log_topics.h"

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
  Broker(const Mqtt_address& address, const Mqtt_files& files, const std::string& prefix,
         bool takes_commands);
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
  class Connection;
  std::unique_ptr<Connection> connection_;
};

}  // namespace kestrelctl
