// SPDX-License-Identifier: GPL-3.0-or-later
//
// A packet of service data as the chip sends it, printed. Input: the reply from status 0 on.
#include "si468x/service_playback.h"
#include "support.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Constant_board board({data, size});
  fuzz::Bytes reply(service_data_reply_bytes);
  Si468x_digital_service_data packet;
  if (packet.get_new_data(reply.data()) != 0) return 0;
  // In an array of its own size, so that a byte read beyond the payload is found.
  fuzz::Bytes payload(packet.payload, packet.payload + packet.byte_count);
  constexpr std::size_t payload_at = 24;
  for (std::size_t i = 0; i < payload.size() && payload_at + i < size; ++i) {
    fuzz::require(payload[i] == data[payload_at + i], "the payload is what was sent");
  }
  if (packet.payload != nullptr) packet.payload = payload.data();
  packet.print_stationtext();
  packet.print_data();
  return 0;
}
