// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/serve_rules.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace kestrelctl {
namespace {

using json = nlohmann::json;

/// A whole number of `object`.
std::uint32_t member_in(const json& object, const char* key, std::uint32_t lowest,
                        std::uint32_t highest) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_unsigned() ||
      found->get<std::uint64_t>() < lowest || found->get<std::uint64_t>() > highest) {
    throw Bad_request(
        fmt::format("\"{}\" must be a whole number from {} to {}.", key, lowest, highest));
  }
  return found->get<std::uint32_t>();
}

/// `value`, which must be an object with no other keys than these.
const json& expect_object(const json& value, std::initializer_list<std::string_view> keys) {
  if (!value.is_object()) throw Bad_request("A JSON object is expected.");
  for (const auto& [key, member] : value.items()) {
    if (std::ranges::find(keys, key) == keys.end()) {
      throw Bad_request(fmt::format("Only these keys are known here: {}.", fmt::join(keys, ", ")));
    }
  }
  return value;
}

Station_reference station_in(const json& object) {
  constexpr std::uint32_t highest_id = 0xFFFFFFFF;
  constexpr std::uint32_t highest_khz = 1'000'000;
  const auto station = object.find("station");
  if (station == object.end()) throw Bad_request("\"station\" is missing.");
  expect_object(*station, {"frequency_khz", "service_id", "component_id"});
  Station_reference reference{.name = {},
                              .is_fm = false,
                              .khz = member_in(*station, "frequency_khz", 1, highest_khz),
                              .service_id = member_in(*station, "service_id", 0, highest_id),
                              .component_id = member_in(*station, "component_id", 0, highest_id)};
  reference.is_fm = reference.service_id == 0;
  return reference;
}

Wish parse_play(const json& body) {
  expect_object(body, {"preset", "station"});
  if (body.size() != 1) throw Bad_request("Either \"preset\" or \"station\" is expected.");
  if (body.contains("station")) return Play_wish{station_in(body)};
  return Play_wish{member_in(body, "preset", 1, highest_preset)};
}

Wish parse_volume(const json& body) {
  expect_object(body, {"volume"});
  return Volume_wish{static_cast<int>(member_in(body, "volume", 0, highest_volume))};
}

Wish parse_stop(const json& body) {
  if (!body.empty() || !body.is_object()) throw Bad_request("An empty JSON object is expected.");
  return Stop_wish{};
}

Wish parse_preset(const json& body) {
  expect_object(body, {"number", "station"});
  Preset_wish wish{.number = member_in(body, "number", 1, highest_preset), .station = {}};
  const auto station = body.find("station");
  if (station == body.end() || !station->is_null()) wish.station = station_in(body);
  return wish;
}

constexpr struct {
  std::string_view path;
  Wish (*parse)(const json& body);
} parsers[]{{"/api/play", parse_play},
            {"/api/volume", parse_volume},
            {"/api/stop", parse_stop},
            {"/api/preset", parse_preset}};

std::string in_lower_case(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return text;
}

/// Is `host`, as a browser sends it, one of the machine's names, or where the request came in?
bool is_own_name(const Access& access, const Request_head& request) {
  constexpr int default_port = 80;
  constexpr std::string_view mapped = "::ffff:";
  const auto host = in_lower_case(request.host);
  const auto is_it = [&](const std::string& name) {
    return host == fmt::format("{}:{}", name, access.port) ||
           (access.port == default_port && host == name);
  };
  auto address = request.local_address;
  if (address.starts_with(mapped)) address.erase(0, mapped.size());
  if (address.find(':') != std::string::npos) address = '[' + address + ']';
  return is_it(address) || std::ranges::any_of(access.names, is_it);
}

}  // namespace

Wish parse_request(std::string_view path, std::string_view body) {
  const auto* const found =
      std::ranges::find(parsers, path, [](const auto& candidate) { return candidate.path; });
  if (found == std::end(parsers)) throw Bad_request("Nothing of this name can be asked for.");
  const auto document = json::parse(body, nullptr, false);
  if (document.is_discarded()) throw Bad_request("This is not JSON.");
  return found->parse(document);
}

std::optional<Listen_address> parse_listen_address(std::string_view text) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  Listen_address listen{.address = std::string(text.substr(0, colon))};
  std::uint16_t port = 0;
  const auto digits = text.substr(colon + 1);
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), port);
  if (error != std::errc() || end != digits.end()) return std::nullopt;
  listen.port = port;
  auto& address = listen.address;
  if (address == "localhost") address = "127.0.0.1";
  in_addr v4{};
  in6_addr v6{};
  if (inet_pton(AF_INET, address.c_str(), &v4) == 1) {
    constexpr std::uint32_t loopback_network = 127;
    listen.is_loopback = ntohl(v4.s_addr) >> 24U == loopback_network;
    return listen;
  }
  if (!address.starts_with('[') || !address.ends_with(']')) return std::nullopt;
  address = address.substr(1, address.size() - 2);
  if (inet_pton(AF_INET6, address.c_str(), &v6) != 1) return std::nullopt;
  listen.is_loopback = IN6_IS_ADDR_LOOPBACK(&v6);
  return listen;
}

std::optional<Refusal> refuse(const Access& access, const Request_head& request) {
  if (!is_own_name(access, request)) {
    return Refusal{403, "This radio does not go by that name. Use its address instead."};
  }
  const auto& site = request.fetch_site;
  const bool is_foreign = !site.empty() && site != "same-origin" && site != "none";
  const bool has_own_origin = request.origin == "http://" + request.host;
  if (!request.path.starts_with("/api/")) return std::nullopt;
  if (is_foreign ||
      (request.is_post ? !has_own_origin : !request.origin.empty() && !has_own_origin)) {
    return Refusal{403, "Only the radio's own page may ask for this."};
  }
  constexpr std::string_view scheme = "Bearer ";
  const std::string_view given = request.authorization;
  if (!access.token.empty() &&
      !(given.starts_with(scheme) && is_same_secret(access.token, given.substr(scheme.size())))) {
    return Refusal{401, "The token is missing or wrong."};
  }
  if (request.is_post && request.content_type != "application/json") {
    return Refusal{415, "The request must be application/json."};
  }
  return std::nullopt;
}

bool is_same_secret(std::string_view expected, std::string_view given) {
  // Volatile, so that the loop is not left early.
  volatile unsigned difference = expected.size() == given.size() ? 0 : 1;
  for (std::size_t i = 0; i < given.size(); ++i) {
    const auto other = expected.empty() ? '\0' : expected[i % expected.size()];
    difference = difference | static_cast<unsigned char>(given[i] ^ other);
  }
  return difference == 0;
}

}  // namespace kestrelctl
