// SPDX-License-Identifier: GPL-3.0-or-later
//
// The one world that is switched on, and the tests' view of it.
#include "sim/board.h"

#include <memory>

#include "si468x/board_file.h"
#include "sim/world.h"

namespace sim {
namespace {

std::unique_ptr<World>& present_world() {
  static std::unique_ptr<World> world;
  return world;
}

}  // namespace

World& world() {
  auto& present = present_world();
  if (present == nullptr) {
    present = std::make_unique<World>(settings_from_environment());
  }
  return *present;
}

Board_files default_board_files() {
  using namespace std::string_literals;
  // Each row of the ranges: address on the bus, address for the processor in two words, size.
  return {
      {"/dev/spidev0.0", ""},
      {"/proc/device-tree/model", "Raspberry Pi 4 Model B Rev 1.4\0"s},
      {"/proc/device-tree/soc/ranges",
       "\x7E\x00\x00\x00\x00\x00\x00\x00\xFE\x00\x00\x00\x01\x80\x00\x00"s
       "\x7C\x00\x00\x00\x00\x00\x00\x00\xFC\x00\x00\x00\x02\x00\x00\x00"s
       "\x40\x00\x00\x00\x00\x00\x00\x00\xFF\x80\x00\x00\x00\x80\x00\x00"s},
  };
}

void power_on(const Settings& settings) {
  power_off();
  present_world() = std::make_unique<World>(settings);
}

void power_off() { present_world().reset(); }

void attach(Spi_device& device) { world().attach(device); }

const std::vector<Event>& events() { return world().events(); }

std::vector<std::string> event_texts() {
  std::vector<std::string> texts;
  for (const Event& event : events()) {
    texts.push_back(to_string(event));
  }
  return texts;
}

std::vector<std::vector<std::uint8_t>> commands() {
  std::vector<std::vector<std::uint8_t>> frames;
  for (const Event& event : events()) {
    if (!event.sent.empty() && event.sent[0] != 0) {
      frames.push_back(event.sent);
    }
  }
  return frames;
}

void clear_events() { world().clear_events(); }

std::chrono::nanoseconds now() { return world().clock().now(); }

std::chrono::nanoseconds waited() { return world().clock().waited(); }

std::uint64_t wire_bytes() { return world().wire_bytes(); }

const std::vector<std::string>& violations() { return world().violations(); }

Air& air() { return world().air(); }

void pass_time(std::chrono::nanoseconds duration) { world().clock().advance(duration); }

void set_booted(bool dab) {
  Chip_state state;
  start_firmware(state, dab ? Firmware::dab : Firmware::fmhd);
  world().receiver().restore(state);
  world().save_if_changed();
  world().peripherals().set_reset_level(true);
}

}  // namespace sim

std::FILE* open_board_file(const char* path, const char* mode) {
  return sim::world().open_board_file(path, mode);
}
