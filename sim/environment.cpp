// SPDX-License-Identifier: GPL-3.0-or-later
//
// The simulator's settings from the environment; nothing else reads it.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "sim/world.h"

namespace sim {
namespace {

/// The value of a variable, empty when it is not set.
std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

void ignore(const char* name, std::string_view value) {
  (void)std::fprintf(stderr, "kestrel-sim: %s: \"%.*s\" is not understood and ignored\n", name,
                     static_cast<int>(value.size()), value.data());
}

}  // namespace

Settings settings_from_environment() {
  constexpr const char* clock_name = "KESTREL_SIM_CLOCK";
  constexpr const char* fault_name = "KESTREL_SIM_FAULT";
  Settings settings;
  settings.keeps_events = false;  // a program may run for years
  const auto directory = variable("KESTREL_SIM_DIR");
  settings.directory = directory.empty() ? "/run/kestrel-sim" : directory;
  settings.trace = variable("KESTREL_SIM_TRACE");
  const auto clock = variable(clock_name);
  settings.virtual_clock = clock == "virtual";
  if (!clock.empty() && clock != "virtual" && clock != "real") {
    ignore(clock_name, clock);
  }
  for (std::string_view rest = variable(fault_name); !rest.empty();) {
    const std::string_view text = rest.substr(0, rest.find(','));
    rest.remove_prefix(text.size() < rest.size() ? text.size() + 1 : text.size());
    if (const auto fault = parse_fault(text)) {
      settings.faults.push_back(*fault);
    } else {
      ignore(fault_name, text);
    }
  }
  return settings;
}

}  // namespace sim
