// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the page's server makes of bytes from the network, and whom it answers: pure functions, so
// that all of it can be tested and fuzzed without a socket.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kestrelctl/store.h"

namespace kestrelctl {

// -- What is asked for --------------------------------------------------------

struct Play_wish {
  std::variant<unsigned, Station_reference> what;  ///< the number of a preset, or a station
};
struct Volume_wish {
  int volume;  ///< 0 to highest_volume
};
struct Stop_wish {};
struct Preset_wish {
  unsigned number;                           ///< 1 to highest_preset
  std::optional<Station_reference> station;  ///< nothing: forget the preset
};
using Wish = std::variant<Play_wish, Volume_wish, Stop_wish, Preset_wish>;

/// The request cannot be understood; the sentence says what it should be.
class Bad_request : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What a POST to `path`, "/api/play" for one, with `body`, a JSON object, asks for. References to
/// stations have no name. Throws Bad_request, whatever the bytes are.
Wish parse_request(std::string_view path, std::string_view body);

// -- Who may ask --------------------------------------------------------------

struct Listen_address {
  std::string address;  ///< numeric, IPv6 without brackets
  int port = 0;         ///< 0: any that is free
  bool is_loopback = false;
};
/// "192.168.1.5:8468", "[::1]:8468" or "localhost:8468"; nothing if it is none of these.
std::optional<Listen_address> parse_listen_address(std::string_view text);

struct Access {
  std::vector<std::string> names;  ///< the machine's, in lower case: a browser may use them
  int port = 0;
  std::string token;  ///< empty: none is needed
};
/// What a request says of itself; headers that are not there are empty.
struct Request_head {
  bool is_post = false;
  std::string path = {};
  std::string host = {};
  std::string origin = {};
  std::string fetch_site = {};
  std::string content_type = {};
  std::string authorization = {};
  std::string local_address = {};  ///< at which it came in, numeric
};
struct Refusal {
  int status;  ///< of HTTP
  const char* sentence;
};
/// Nothing if the request may be answered. The page itself, which says nothing about the radio, is
/// anybody's who calls this machine by its own name: a name of somebody else's that leads here may
/// be that of a hostile site.
std::optional<Refusal> refuse(const Access& access, const Request_head& request);

/// Takes the same time whatever `given` has in common with `expected`.
bool is_same_secret(std::string_view expected, std::string_view given);

}  // namespace kestrelctl
