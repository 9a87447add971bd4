// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/log_topics.h"

#include <algorithm>
#include <regex>

#include "kestrelctl/store.h"

namespace kestrelctl {
namespace {

struct Entity {
  const char* component = nullptr;
  const char* key = nullptr;  ///< in the row
  const char* name = nullptr;
  const char* unit = nullptr;
};
constexpr Entity entities[]{
    {"sensor", "station", "Station"},
    {"sensor", "text", "Text"},
    {"sensor", "rssi_dbuv", "Signal strength", "dBµV"},
    {"sensor", "snr_db", "Signal to noise ratio", "dB"},
    {"sensor", "fic_quality", "FIC quality", "%"},
    {"binary_sensor", "received", "Reception"},
    {"binary_sensor", "muted", "Muted"},
};

std::string make_id(std::string site) {
  std::ranges::replace_if(
      site,
      [](char c) {
        return (c < '0' || c > '9') && (c < 'A' || c > 'Z') && (c < 'a' || c > 'z') && c != '-';
      },
      '_');
  return site;
}

}  // namespace

Mqtt_address parse_mqtt_url(const std::string& url) {
  constexpr int plain_port = 1883;
  constexpr int encrypted_port = 8883;
  constexpr int highest_port = 65535;
  static const std::regex form(
      R"((mqtts?)://(?:([^@:/]+)@)?(\[[0-9a-fA-F:.]+\]|[^@:/\[\]]+)(?::(\d{1,5}))?(?:/([^+#]*))?)");
  constexpr std::size_t longest_url = 1024;  // more is more than the regular expressions bear
  std::smatch parts;
  if (url.size() > longest_url || !std::regex_match(url, parts, form)) {
    throw Failure(
        "--mqtt takes mqtt://[USER@]HOST[:PORT][/PREFIX] or mqtts://...; a password goes "
        "into the file of --mqtt-password-file",
        exit_status::usage);
  }
  Mqtt_address address{parts[1] == "mqtts", parts[2], parts[3], 0, parts[5]};
  if (address.host.starts_with('[')) address.host = address.host.substr(1, address.host.size() - 2);
  address.port = address.is_encrypted ? encrypted_port : plain_port;
  if (parts[4].matched) address.port = std::stoi(parts[4]);
  if (address.port == 0 || address.port > highest_port) {
    throw Failure("--mqtt: the port is not one of 1 to 65535", exit_status::usage);
  }
  while (address.prefix.ends_with('/')) address.prefix.pop_back();
  return address;
}

Topics::Topics(const std::string& prefix, const std::string& site)
    : site_(site), id_(make_id(site)), prefix_(prefix.empty() ? "kestrel/" + id_ : prefix) {}

Messages Topics::messages_of(const Row& row) const {
  if (row["kind"] == "sample") {
    const auto& text = row["text"];
    return {{below("status"), row.dump()},
            {below("text"), text.is_string() ? text.get<std::string>() : ""}};
  }
  if (row["kind"] != "detection" || !row["block"].is_string()) return {};
  const auto block = row["block"].get<std::string>();
  return {{below("block/" + block), row.dump()},
          announce("sensor", "block_" + block,
                   {{"name", "Block " + block},
                    {"state_topic", below("block/" + block)},
                    {"value_template", "{{ value_json.rssi_dbuv }}"},
                    {"unit_of_measurement", "dBµV"},
                    {"state_class", "measurement"}})};
}

Messages Topics::announce_radio(const std::vector<std::string>& presets) const {
  Messages messages;
  for (const auto& [component, key, name, unit] : entities) {
    const bool is_flag = component == std::string_view("binary_sensor");
    Row details{{"name", name}, {"state_topic", below("status")}};
    details["value_template"] = is_flag
                                    ? fmt::format("{{{{ 'ON' if value_json.{} else 'OFF' }}}}", key)
                                    : fmt::format("{{{{ value_json.{} }}}}", key);
    if (unit != nullptr) {
      details.update({{"unit_of_measurement", unit}, {"state_class", "measurement"}});
    }
    messages.insert(announce(component, key, details));
  }
  messages.insert(announce("number", "volume",
                           {{"name", "Volume"},
                            {"state_topic", below("status")},
                            {"value_template", "{{ value_json.volume }}"},
                            {"command_topic", below("volume/set")},
                            {"min", 0},
                            {"max", highest_volume}}));
  auto select = announce("select", "preset",
                         {{"name", "Preset"},
                          {"state_topic", below("preset")},
                          {"command_topic", below("preset/set")},
                          {"options", presets}});
  // A select without options is none.
  if (presets.empty()) select.second.clear();
  messages.insert(select);
  return messages;
}

std::pair<std::string, std::string> Topics::announce(const std::string& component,
                                                     const std::string& object, Row details) const {
  details.update({{"unique_id", fmt::format("kestrel_{}_{}", id_, object)},
                  {"availability_topic", below("availability")},
                  {"device", {{"identifiers", {"kestrel_" + id_}}, {"name", "Radio " + site_}}}});
  return {fmt::format("homeassistant/{}/kestrel_{}/{}/config", component, id_, object),
          details.dump()};
}

}  // namespace kestrelctl
