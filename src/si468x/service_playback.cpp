// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/service_playback.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "si468x/bus.h"
#include "si468x/protocol.h"
#include "si468x/record.h"

using namespace si468x;

namespace {

using Packet = Si468x_digital_service_data;

constexpr std::uint8_t audio_service = 0;

constexpr std::array packet_fields{
    text_field<&Packet::overflow>(bit(5, 1), "Buffer overflow:"),
    text_field<&Packet::data_ready>(bit(5, 0), "Packet ready:"),
    text_field<&Packet::buffer_remaining>(u8(6), "Data remaining in buffer:"),
    text_field<&Packet::srv_state>(u8(7), "Service state:"),
    text_field<&Packet::payload_source>(bits(8, 7, 6), "Payload source:"),
    text_field<&Packet::dscty>(bits(8, 5, 0), "Data service component type:"),
    text_field<&Packet::service_id>(u32(9), "Service ID:"),
    text_field<&Packet::component_id>(u32(13), "Component ID:"),
    text_field<&Packet::byte_count>(u16(19), "Payload bytes:"),
    text_field<&Packet::segment_number>(u16(21), "Segment number:"),
    text_field<&Packet::number_of_segments>(u16(23), "Number of segments:"),
};
constexpr std::uint16_t packet_header_bytes = 25;
static_assert(fits(packet_fields, packet_header_bytes));
constexpr std::uint16_t payload_limit = service_data_reply_bytes - packet_header_bytes;

// A poll reads as far as the status byte that tells whether the rest is worth reading.
constexpr std::uint16_t poll_bytes = 2;

constexpr unsigned data_poll_limit = 10;
constexpr unsigned data_wait_us = 10;

/// START_ and STOP_DIGITAL_SERVICE have one frame.
std::int16_t send_service_command(std::uint8_t opcode, std::uint8_t type, std::uint32_t service,
                                  std::uint32_t component, Error code) {
  const auto outcome = send_command(
      std::array<std::uint8_t, 12>{opcode, type, 0x00, 0x00, octet(service, 0), octet(service, 1),
                                   octet(service, 2), octet(service, 3), octet(component, 0),
                                   octet(component, 1), octet(component, 2), octet(component, 3)});
  return outcome < 0 ? failed(code, outcome) : result::ok;
}

/// Clear `bytes` bytes, so that the chip is sent zeros, and exchange them within the frame that is
/// open.
void read_piece(std::uint8_t* into, std::uint16_t bytes) {
  Si468x_clear_array(into, bytes);
  (void)Si468x_SPI_RW_data_noCS(into, bytes);  // this bus cannot fail
}

/// Begin a reply. True: the chip is clear to send, and the frame stays open after `poll_bytes`
/// bytes.
bool open_reply(std::uint8_t* reply) {
  for (unsigned poll = 0; poll < data_poll_limit; ++poll) {
    Si468x_SPI_CS_low();
    read_piece(reply, poll_bytes);
    if (is_clear_to_send(reply)) return true;
    Si468x_SPI_CS_high();
    Si468x_delay_us(data_wait_us);
  }
  return false;
}

bool is_printable_ascii(std::uint8_t byte) { return byte >= 0x20 && byte <= 0x7E; }

}  // namespace

std::int16_t Si468x_start_digital_service(unsigned char service_type, unsigned int service_id,
                                          unsigned int component_id) {
  return send_service_command(opcode::start_digital_service, service_type, service_id, component_id,
                              Error::start_service);
}

std::int16_t Si468x_stop_digital_service(unsigned char service_type, unsigned int service_id,
                                         unsigned int component_id) {
  return send_service_command(opcode::stop_digital_service, service_type, service_id, component_id,
                              Error::stop_service);
}

std::int16_t Si468x_digital_service_data::get_new_data(unsigned char* reply) {
  auto command = command_with(opcode::get_digital_service_data, 0x00);
  // A chip that did not get the command is not clear to send, or has no packet.
  (void)Si468x_send_cmd_simple(command.data(), command.size());
  Si468x_delay_us(data_wait_us);
  if (!open_reply(reply)) return failed(Error::service_data_not_ready, result::timed_out);

  // The payload's length is in the header, so the frame stays open until both are read.
  read_piece(reply + poll_bytes, packet_header_bytes - poll_bytes);
  decode(packet_fields, reply, *this);
  byte_count = std::min(byte_count, payload_limit);
  payload = nullptr;
  if (byte_count != 0) {
    payload = reply + packet_header_bytes;
    read_piece(payload, byte_count);
  }
  Si468x_SPI_CS_high();
  return result::ok;
}

void Si468x_digital_service_data::print_stationtext() {
  if (payload == nullptr) return;
  constexpr std::size_t prefix_bytes = 2;
  constexpr std::size_t trailing_bytes = 1;
  for (std::size_t i = prefix_bytes; i + trailing_bytes < byte_count; ++i) {
    if (is_printable_ascii(payload[i])) {
      std::putchar(payload[i]);
    } else {
      std::printf("%02x ", payload[i]);
    }
  }
}

std::int16_t Si468x_digital_service_data::print_data() {
  std::puts("Digital service data ----------------- ");
  print_fields(packet_fields, *this);
  return result::ok;
}

std::int16_t play_station(unsigned int service_id, unsigned int component_id) {
  if (Si468x_start_digital_service(audio_service, service_id, component_id) == 0) return 0;
  std::puts("Could not start service\n");
  return -1;
}

int print_station_text() {
  std::array<unsigned char, service_data_reply_bytes> reply{};
  Si468x_digital_service_data packet;
  if (packet.get_new_data(reply.data()) != 0) {
    std::puts("Error getting service data \n");
    return 0;
  }
  packet.print_stationtext();
  return 0;
}
