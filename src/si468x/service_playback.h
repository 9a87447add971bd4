// SPDX-License-Identifier: GPL-3.0-or-later
//
// Starting a service of the tuned ensemble, which the chip then plays on its own, and reading a
// packet of its data, the station's text. Commands `play` and `station_text`.
#pragma once

#include <cstddef>
#include <cstdint>

/// Start a component of a service; type 0 is an audio service. 0, or the protocol's negative result
/// with code 32.
std::int16_t Si468x_start_digital_service(unsigned char service_type, unsigned int service_id,
                                          unsigned int component_id);
/// Stop it. 0, or the protocol's negative result with code 33.
std::int16_t Si468x_stop_digital_service(unsigned char service_type, unsigned int service_id,
                                         unsigned int component_id);

/// Length of the reply array that Si468x_digital_service_data reads into.
inline constexpr std::size_t service_data_reply_bytes = 5000;

/// One packet from the chip's buffer of service data.
struct Si468x_digital_service_data {
  std::uint8_t overflow = 0;          ///< 1: the chip's buffer overflowed
  std::uint8_t data_ready = 0;        ///< 1: a packet was ready
  std::uint8_t buffer_remaining = 0;  ///< what is left in the chip's buffer
  std::uint8_t srv_state = 0;
  std::uint8_t payload_source = 0;  ///< 0 to 3
  std::uint8_t dscty = 0;           ///< data service component type, 0 to 63
  std::uint32_t service_id = 0;
  std::uint32_t component_id = 0;
  std::uint16_t byte_count = 0;  ///< bytes at `payload`
  std::uint16_t segment_number = 0;
  std::uint16_t number_of_segments = 0;
  std::uint8_t* payload = nullptr;  ///< in the caller's reply array; null: no payload

  /// Read one packet into `reply`, the caller's array of 5000 bytes, which must outlive the
  /// record's use, and fill the record. A payload longer than the array is read, and counted in
  /// `byte_count`, only as far as the array goes. 0, or -3 with code 34 when the chip is not clear
  /// to send within 10 polls; the record is then untouched. The status's error bits are not looked
  /// at.
  std::int16_t get_new_data(unsigned char* reply);
  /// Print the payload without its first two bytes and its last one: printable ASCII as it is, any
  /// other byte as two hex digits and a blank. No line end.
  void print_stationtext();
  /// Print every field of the header as a text table.
  std::int16_t print_data();
};

/// Command `play`: start an audio service. 0, or -1 after a message.
std::int16_t play_station(unsigned int service_id, unsigned int component_id);
/// Command `station_text`: print the text of one packet, or a message when the chip does not
/// answer. Always 0.
int print_station_text();
