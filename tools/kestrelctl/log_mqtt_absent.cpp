// SPDX-License-Identifier: GPL-3.0-or-later
//
// What log_mqtt.cpp is where libmosquitto was not there when kestrelctl was built.
#include "kestrelctl/log_mqtt.h"
#include "kestrelctl/receiver.h"

namespace kestrelctl {

void Broker::Destroy::operator()(mosquitto*) const {}
Broker::Broker(Mqtt_address, const Mqtt_files&, std::string, bool)
    : takes_commands_(false), trouble_("") {
  throw Failure("--mqtt: this kestrelctl was built without libmosquitto", exit_status::usage);
}
Broker::~Broker() = default;
void Broker::retain(const std::string&, const std::string&) {}
void Broker::send(const std::string&, const std::string&) {}
std::optional<Broker::Command> Broker::take_command() { return std::nullopt; }

}  // namespace kestrelctl
