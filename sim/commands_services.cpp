// SPDX-License-Identifier: GPL-3.0-or-later
//
// The service list of the tuned ensemble, playing one of its services, and the
// data packets that carry the playing service's text.
#include <algorithm>
#include <array>
#include <string>

#include "sim/receiver.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr Time packet_interval = 400ms;
constexpr std::uint32_t packets_kept = 32;

void append_entry(std::vector<std::uint8_t>& entry, const Service& service) {
  constexpr std::size_t label_bytes = 16;
  constexpr std::size_t most_components = 15;
  append(entry, service.id, 4);
  entry.push_back(join(std::uint8_t{0x80}, flag(service.is_linked, 6),
                       static_cast<std::uint8_t>((service.program_type & 0x1F) << 1),
                       flag(service.is_data, 0)));
  const std::size_t count = std::min(service.components.size(), most_components);
  entry.push_back(join(flag(service.is_local, 7),
                       static_cast<std::uint8_t>((service.ca_id & 0x07) << 4),
                       static_cast<std::uint8_t>(count)));
  entry.push_back(join(std::uint8_t{0xF0}, static_cast<std::uint8_t>(service.charset & 0x0F)));
  entry.push_back(reserved_byte);
  std::string label = service.label;
  label.resize(label_bytes, ' ');
  entry.insert(entry.end(), label.begin(), label.end());
  for (std::size_t i = 0; i < count; ++i) {
    const Component& component = service.components[i];
    append(entry, component.word(), 2);
    entry.push_back(join(static_cast<std::uint8_t>(component.type << 2),
                         flag(component.is_primary, 1), flag(component.is_scrambled, 0)));
    entry.push_back(join(std::uint8_t{0x5A}, flag(component.has_application_info, 0)));
  }
}

Refusal get_service_list(Receiver& chip, Frame /*frame*/) {
  static const Ensemble nothing;
  const Ensemble* const listed = listed_ensemble(chip);
  const Ensemble& ensemble = listed != nullptr ? *listed : nothing;
  std::vector<std::uint8_t> list;
  append(list, ensemble.list_version, 2);
  append(list, ensemble.services.size(), 1);
  list.insert(list.end(), 3, reserved_byte);
  for (const Service& service : ensemble.services) append_entry(list, service);
  append(chip.reply, list.size(), 2);
  chip.reply.insert(chip.reply.end(), list.begin(), list.end());
  return nullptr;
}

/// Why a start or stop command cannot be meant; null when it names a component on the air.
Refusal check_named(const Receiver& chip, Frame frame) {
  const Ensemble* const ensemble = listed_ensemble(chip);
  if (ensemble == nullptr) return "no service list has been received";
  const auto service = std::ranges::find(ensemble->services, number_at(frame, 4, 4), &Service::id);
  if (service == ensemble->services.end()) return "no such service in the ensemble";
  const auto component =
      std::ranges::find(service->components, number_at(frame, 8, 4), &Component::word);
  if (component == service->components.end()) return "no such component in the service";
  if (frame[1] != (service->is_data ? 1 : 0) || !is_all_zero(frame.subspan(2, 2))) {
    return "service type does not fit the service";
  }
  return component->is_scrambled ? "the component is scrambled" : nullptr;
}

Refusal start_service(Receiver& chip, Frame frame) {
  if (const Refusal refusal = check_named(chip, frame)) return refusal;
  chip.state.is_playing = true;
  chip.state.service_id = number_at(frame, 4, 4);
  chip.state.component_id = number_at(frame, 8, 4);
  chip.state.playing_since = chip.now();
  chip.state.packets_taken = 0;
  return nullptr;
}

Refusal stop_service(Receiver& chip, Frame frame) {
  if (const Refusal refusal = check_named(chip, frame)) return refusal;
  if (!chip.state.is_playing || chip.state.service_id != number_at(frame, 4, 4) ||
      chip.state.component_id != number_at(frame, 8, 4)) {
    return "the service is not playing";
  }
  chip.state.is_playing = false;
  return nullptr;
}

/// The service that plays; null also when it left the air meanwhile.
const Service* playing_service(const Receiver& chip) {
  const Ensemble* const ensemble = chip.state.is_playing ? listed_ensemble(chip) : nullptr;
  if (ensemble == nullptr) return nullptr;
  const auto service = std::ranges::find(ensemble->services, chip.state.service_id, &Service::id);
  return service != ensemble->services.end() ? &*service : nullptr;
}

/// Packets since the service was started, the first one at once.
std::uint32_t packets_arrived(const Receiver& chip) {
  const Service* const service = playing_service(chip);
  const Time passed = chip.now() - chip.state.playing_since;
  return service == nullptr || service->texts.empty() || passed < Time{0}
             ? 0
             : static_cast<std::uint32_t>(passed / packet_interval) + 1;
}

/// Packet number `packet` since the service was started: each text in turn, repeated for as long as
/// it lasts.
std::vector<std::uint8_t> packet_at(const Service& service, std::uint32_t packet) {
  const auto& texts = service.texts;
  const auto count = [](const Text& text) {
    const std::size_t once = dynamic_label_packets(text, false).size();
    return std::max(once, static_cast<std::size_t>(text.lasts / packet_interval));
  };
  std::size_t round = 0;
  for (const Text& text : texts) round += count(text);
  if (round == 0) return {};
  std::size_t turn = packet / round * texts.size();
  std::size_t left = packet % round;
  for (; left >= count(texts[turn % texts.size()]); ++turn) {
    left -= count(texts[turn % texts.size()]);
  }
  const auto packets = dynamic_label_packets(texts[turn % texts.size()], turn % 2 != 0);
  return packets[left % packets.size()];
}

Refusal get_service_data(Receiver& chip, Frame /*frame*/) {
  constexpr std::uint8_t reserved_flags = 0xFC;
  constexpr std::uint8_t source_text = 2;
  Receiver_state& state = chip.state;
  const Service* const service = playing_service(chip);
  const std::uint32_t arrived = packets_arrived(chip);
  const bool is_ready = arrived > state.packets_taken;
  const bool has_overflowed = is_ready && arrived - state.packets_taken > packets_kept;
  if (has_overflowed) state.packets_taken = arrived - packets_kept;
  std::vector<std::uint8_t> payload;
  if (is_ready) {
    payload = packet_at(*service, state.packets_taken);
    ++state.packets_taken;
  }
  auto& out = chip.reply;
  out.push_back(join(reserved_flags, flag(has_overflowed, 1), flag(is_ready, 0)));
  append(out, is_ready ? arrived - state.packets_taken : 0U, 1);
  out.push_back(flag(state.is_playing, 0));
  out.push_back(std::uint8_t{source_text << 6});
  append(out, state.is_playing ? state.service_id : 0U, 4);
  append(out, state.is_playing ? state.component_id : 0U, 4);
  out.insert(out.end(), 2, reserved_byte);
  append(out, payload.size(), 2);
  append(out, 0, 2);
  append(out, is_ready ? 1U : 0U, 2);
  out.insert(out.end(), payload.begin(), payload.end());
  return nullptr;
}

constexpr auto service_table = std::to_array<Command>({
    {0x80, "GET_DIGITAL_SERVICE_LIST", 0x00, 2, 2, in_dab, 40us, get_service_list},
    {0x81, "START_DIGITAL_SERVICE", 0x01, 12, 12, in_dab, 80us, start_service},
    {0x82, "STOP_DIGITAL_SERVICE", 0x01, 12, 12, in_dab, 80us, stop_service},
    {0x84, "GET_DIGITAL_SERVICE_DATA", 0x00, 2, 2, in_dab, 25us, get_service_data},
});

}  // namespace

std::span<const Command> service_commands() { return service_table; }

unsigned service_interrupts(const Receiver& chip) {
  return flag(packets_arrived(chip) > chip.state.packets_taken, 4);
}

}  // namespace sim
