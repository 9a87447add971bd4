// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the log says over MQTT, and how Home Assistant learns of it. No I/O: topics and payloads.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kestrelctl/log_rows.h"

namespace kestrelctl {

struct Mqtt_address {
  bool is_encrypted = false;
  std::string user;  ///< empty: nobody
  std::string host;
  int port = 0;
  std::string prefix;  ///< of the topics; empty: none was given
};
/// Of "mqtt[s]://[USER@]HOST[:PORT][/PREFIX]". Throws Failure with the status of a wrong command
/// line.
Mqtt_address parse_mqtt_url(const std::string& url);

/// Payloads by topic. An empty payload takes a retained message away.
using Messages = std::map<std::string, std::string>;

class Topics {
 public:
  /// `prefix` is what all topics but the discovery begin with; empty: "kestrel/SITE".
  Topics(const std::string& prefix, const std::string& site);

  [[nodiscard]] const std::string& prefix() const { return prefix_; }
  [[nodiscard]] std::string below(const std::string& topic) const { return prefix_ + '/' + topic; }

  /// What is retained of a sample or a detection.
  [[nodiscard]] Messages messages_of(const Row& row) const;
  /// Announces the sensors of samples and, with `presets`, what they can be chosen and the volume
  /// can be set with. Each preset is "NUMBER NAME".
  [[nodiscard]] Messages announce_radio(const std::vector<std::string>& presets) const;

 private:
  [[nodiscard]] std::pair<std::string, std::string> announce(const std::string& component,
                                                             const std::string& object,
                                                             Row details) const;

  std::string site_;
  std::string id_;  ///< the site, as topics and identifiers may have it
  std::string prefix_;
};

}  // namespace kestrelctl
