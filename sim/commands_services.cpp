// SPDX-License-Identifier: GPL-3.0-or-later
//
// The service list of the tuned ensemble, playing one of its services, and the
// data packets that carry the playing service's text.
#include <algorithm>
#include <array>
#include <string>

#include "sim/chip.h"
#include "sim/dynamic_label.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t label_bytes = 16;

constexpr Time packet_interval = 400ms;
constexpr std::uint32_t packets_kept = 32;

std::vector<std::uint8_t> list_entry(const Service& service) {
  constexpr std::size_t most_components = 15;
  std::vector<std::uint8_t> entry;
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
  return entry;
}

Refusal get_service_list(Chip& chip, Frame /*frame*/) {
  const Ensemble* const ensemble = listed_ensemble(chip);
  std::vector<std::uint8_t> list;
  append(list, ensemble != nullptr ? ensemble->list_version : 0U, 2);
  append(list, ensemble != nullptr ? ensemble->services.size() : 0U, 1);
  list.insert(list.end(), 3, reserved_byte);
  if (ensemble != nullptr) {
    for (const Service& service : ensemble->services) {
      const auto entry = list_entry(service);
      list.insert(list.end(), entry.begin(), entry.end());
    }
  }
  append(chip.reply, list.size(), 2);
  chip.reply.insert(chip.reply.end(), list.begin(), list.end());
  return nullptr;
}

/// The service a start or stop command names, of the type and with the component it names; null
/// with the reason in `refusal`.
const Service* named_service(const Chip& chip, Frame frame, Refusal& refusal) {
  const Ensemble* const ensemble = listed_ensemble(chip);
  if (ensemble == nullptr) {
    refusal = "no service list has been received";
    return nullptr;
  }
  const auto service = std::ranges::find(ensemble->services, number_at(frame, 4, 4), &Service::id);
  if (service == ensemble->services.end()) {
    refusal = "no such service in the ensemble";
    return nullptr;
  }
  const auto component = std::ranges::find_if(
      service->components,
      [wanted = number_at(frame, 8, 4)](const Component& one) { return one.word() == wanted; });
  if (component == service->components.end()) {
    refusal = "no such component in the service";
    return nullptr;
  }
  if (frame[1] != (service->is_data ? 1 : 0) || !is_all_zero(frame.subspan(2, 2))) {
    refusal = "service type does not fit the service";
    return nullptr;
  }
  if (component->is_scrambled) {
    refusal = "the component is scrambled";
    return nullptr;
  }
  refusal = nullptr;
  return &*service;
}

Refusal start_service(Chip& chip, Frame frame) {
  Refusal refusal = nullptr;
  if (named_service(chip, frame, refusal) != nullptr) {
    chip.state.is_playing = true;
    chip.state.service_id = number_at(frame, 4, 4);
    chip.state.component_id = number_at(frame, 8, 4);
    chip.state.playing_since = chip.now();
    chip.state.packets_taken = 0;
  }
  return refusal;
}

Refusal stop_service(Chip& chip, Frame frame) {
  Refusal refusal = nullptr;
  if (named_service(chip, frame, refusal) != nullptr) {
    if (!chip.state.is_playing || chip.state.service_id != number_at(frame, 4, 4) ||
        chip.state.component_id != number_at(frame, 8, 4)) {
      return "the service is not playing";
    }
    chip.state.is_playing = false;
  }
  return refusal;
}

/// The service that plays; null also when it left the air meanwhile.
const Service* playing_service(const Chip& chip) {
  const Ensemble* const ensemble = chip.state.is_playing ? listed_ensemble(chip) : nullptr;
  if (ensemble == nullptr) {
    return nullptr;
  }
  const auto service = std::ranges::find(ensemble->services, chip.state.service_id, &Service::id);
  return service != ensemble->services.end() ? &*service : nullptr;
}

/// Packets since the service was started, the first one at once.
std::uint32_t packets_arrived(const Chip& chip) {
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
  for (const Text& text : texts) {
    round += count(text);
  }
  std::size_t turn = packet / round * texts.size();
  std::size_t left = packet % round;
  for (; left >= count(texts[turn % texts.size()]); ++turn) {
    left -= count(texts[turn % texts.size()]);
  }
  const auto packets = dynamic_label_packets(texts[turn % texts.size()], turn % 2 != 0);
  return packets[left % packets.size()];
}

Refusal get_service_data(Chip& chip, Frame /*frame*/) {
  constexpr std::uint8_t reserved_flags = 0xFC;
  constexpr std::uint8_t source_text = 2;
  constexpr std::uint8_t state_playing = 1;
  constexpr std::uint8_t state_stopped = 0;
  Chip_state& state = chip.state;
  const Service* const service = playing_service(chip);
  const std::uint32_t arrived = packets_arrived(chip);
  const bool is_ready = arrived > state.packets_taken;
  const bool has_overflowed = is_ready && arrived - state.packets_taken > packets_kept;
  if (has_overflowed) {
    state.packets_taken = arrived - packets_kept;
  }
  std::vector<std::uint8_t> payload;
  if (is_ready) {
    payload = packet_at(*service, state.packets_taken);
    ++state.packets_taken;
  }
  auto& out = chip.reply;
  out.push_back(join(reserved_flags, flag(has_overflowed, 1), flag(is_ready, 0)));
  out.push_back(is_ready ? static_cast<std::uint8_t>(arrived - state.packets_taken)
                         : std::uint8_t{0});
  out.push_back(state.is_playing ? state_playing : state_stopped);
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

constexpr auto commands = std::to_array<Command>({
    {0x80, "GET_DIGITAL_SERVICE_LIST", 0x00, 2, 2, in_dab, 40us, get_service_list},
    {0x81, "START_DIGITAL_SERVICE", 0x01, 12, 12, in_dab, 80us, start_service},
    {0x82, "STOP_DIGITAL_SERVICE", 0x01, 12, 12, in_dab, 80us, stop_service},
    {0x84, "GET_DIGITAL_SERVICE_DATA", 0x00, 2, 2, in_dab, 25us, get_service_data},
});

}  // namespace

std::span<const Command> service_commands() { return commands; }

Interrupts service_interrupts(const Chip& chip) {
  constexpr unsigned data_component = 4;
  return {.status0 = flag(packets_arrived(chip) > chip.state.packets_taken, data_component)};
}

}  // namespace sim
