// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/properties.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "si468x/protocol.h"
#include "si468x/wire.h"

using namespace si468x;

namespace {

namespace property {
constexpr std::uint16_t i2s_configuration = 0x0200;
constexpr std::uint16_t i2s_format = 0x0202;
constexpr std::uint16_t analog_volume = 0x0300;
constexpr std::uint16_t audio_output = 0x0800;
}  // namespace property

constexpr std::size_t property_reply_bytes = 7;
constexpr unsigned highest_volume = 63;
constexpr std::uint16_t output_analog = 1;
constexpr std::uint16_t output_i2s = 2;
constexpr std::uint16_t i2s_configuration_value = 0x8000;
constexpr std::uint16_t i2s_format_value = 0x1000;

/// Read one property. `code` is that of the operation that asks.
std::int16_t read_property(std::uint16_t id, std::uint16_t& value, Error code) {
  constexpr std::uint8_t one_property = 1;
  std::array<std::uint8_t, property_reply_bytes> reply{};
  const auto outcome = send_command(
      std::array{opcode::get_property, one_property, octet(id, 0), octet(id, 1)}, reply);
  if (outcome < 0) return failed(code, outcome);
  value = le16(&reply[reply_data]);
  return result::ok;
}

std::int16_t write_property(std::uint16_t id, std::uint16_t value) {
  std::array property{id, value};
  return Si468x_set_property(property.data());
}

/// Ids and values, in the order in which they are written.
std::array<std::array<std::uint16_t, 2>, 3> output_settings(unsigned char enable) {
  return {{
      {property::i2s_configuration, i2s_configuration_value},
      {property::audio_output, enable != 0 ? output_i2s : output_analog},
      {property::i2s_format, i2s_format_value},
  }};
}

}  // namespace

char buffer[5000] = "";

std::int16_t Si468x_set_property(std::uint16_t* prop) {
  const auto id = prop[0];
  const auto value = prop[1];
  const auto outcome = send_command(std::array<std::uint8_t, 6>{
      opcode::set_property, 0x00, octet(id, 0), octet(id, 1), octet(value, 0), octet(value, 1)});
  if (outcome < 0) return failed(Error::set_property, outcome);

  std::uint16_t value_read = 0;
  if (const auto read = read_property(id, value_read, Error::set_property_read_back); read < 0) {
    return read;
  }
  if (value_read != value) return failed(Error::set_property_differs, result::invalid);
  return result::ok;
}

std::int16_t Si468x_get_property(std::uint16_t* prop) {
  return read_property(prop[0], prop[1], Error::get_property);
}

int set_volume(unsigned int level) {
  if (level > highest_volume) {
    std::snprintf(buffer, sizeof buffer, "%s",
                  "Illegal value for volume. Volume must be an integer between 0 and 63\n");
    std::puts(buffer);
    return 0;
  }
  constexpr std::size_t message_limit = 100;
  std::snprintf(buffer, message_limit, "Setting volume to %d\n", static_cast<int>(level));
  std::puts(buffer);
  // There is no message for a chip that does not take it; the error code says so.
  (void)write_property(property::analog_volume, static_cast<std::uint16_t>(level));
  return 0;
}

std::int16_t set_properties_volume(unsigned char level) {
  return write_property(property::analog_volume,
                        static_cast<std::uint16_t>(std::min<unsigned>(level, highest_volume)));
}

std::int16_t set_properties_output(unsigned char enable) {
  for (const auto& [id, value] : output_settings(enable)) {
    if (write_property(id, value) != 0) return -1;
  }
  return 0;
}

std::int16_t set_options_i2s(unsigned char enable) {
  for (const auto& [id, value] : output_settings(enable)) (void)write_property(id, value);
  return 0;
}
