// SPDX-License-Identifier: GPL-3.0-or-later
//
// Where the time of a boot goes, and of kestrelctl's way from a receiver that is off to a station:
// simulated bus time of the driver on the simulated receiver, the same on every machine.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/table.h"
#include "kestrelctl/radio.h"
#include "si468x/boot.h"
#include "si468x/bus.h"
#include "si468x/firmware_images.h"
#include "sim/board.h"

namespace {

constexpr double byte_us = 8 / 7.8125;
constexpr double mandated_ms =
    200 + 50 + 50 + 100;  // reset, settling, after the patch, before BOOT

double ms(std::chrono::nanoseconds time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

void boot(const std::string& name, unsigned char dab, std::size_t firmware_bytes) {
  sim::power_on({});
  if (Si468x_bus_init() != 0 || power_up_and_load_fw(dab) != 1) std::abort();
  const auto image_bytes = static_cast<double>(firmware_bytes + sizeof fw_rom00_patch016bin);
  row((name + ": all time but the mandated 400 ms; its image bytes alone").c_str(),
      ms(sim::now()) - mandated_ms, image_bytes * byte_us / 1000, "ms", "≤ 1.01");
  row((name + ": waits; mandated ones").c_str(), ms(sim::waited()), mandated_ms, "ms");
  row((name + ": bytes on the wire; image bytes").c_str(),
      static_cast<double>(sim::wire_bytes()) / 1000, image_bytes / 1000, "kB");
}

void play() {
  sim::power_on({});
  constexpr std::uint32_t khz = 227360;
  const auto ensemble = std::ranges::find(sim::air().ensembles, khz, &sim::Ensemble::khz);
  const auto directory = std::filesystem::temp_directory_path() / "kestrel_boot_bench";
  kestrelctl::Store store(directory);
  kestrelctl::Station station;
  station.khz = khz;
  station.service_id = 17333;
  station.component_id = 12;
  (void)kestrelctl::Radio(store).play(station);
  std::filesystem::remove_all(directory);
  const auto image_bytes = sizeof fw_dab_radio_5_0_5bin + sizeof fw_rom00_patch016bin;
  const auto beside =
      mandated_ms + static_cast<double>(image_bytes) * byte_us / 1000 + ms(ensemble->list.value());
  row("From off to playing; mandated waits, image bytes and the ensemble's service list",
      ms(sim::now()), beside, "ms", "≤ 1.03");
}

}  // namespace

int main() {
  boot("Boot, DAB", 1, sizeof fw_dab_radio_5_0_5bin);
  boot("Boot, FM-HD", 0, sizeof fw_fmhd_radio_5_0_4bin);
  play();
  sim::power_off();
}
