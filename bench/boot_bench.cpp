// SPDX-License-Identifier: GPL-3.0-or-later
//
// Where the time of a boot goes: simulated bus time of the driver on the simulated receiver, the
// same on every machine.
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "bench/table.h"
#include "si468x/boot.h"
#include "si468x/bus.h"
#include "si468x/firmware_images.h"
#include "sim/board.h"

namespace {

constexpr double byte_us = 8 / 7.8125;
constexpr double mandated_ms =
    200 + 50 + 50 + 100;  // reset, settling, after the patch, before BOOT

void boot(const std::string& name, unsigned char dab, std::size_t firmware_bytes) {
  sim::power_on({});
  if (Si468x_bus_init() != 0 || power_up_and_load_fw(dab) != 1) std::abort();
  const auto ms = [](std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
  };
  const auto image_bytes = static_cast<double>(firmware_bytes + sizeof fw_rom00_patch016bin);
  row((name + ": all time but the mandated 400 ms; its image bytes alone").c_str(),
      ms(sim::now()) - mandated_ms, image_bytes * byte_us / 1000, "ms", "≤ 1.01");
  row((name + ": waits; mandated ones").c_str(), ms(sim::waited()), mandated_ms, "ms");
  row((name + ": bytes on the wire; image bytes").c_str(),
      static_cast<double>(sim::wire_bytes()) / 1000, image_bytes / 1000, "kB");
}

}  // namespace

int main() {
  boot("Boot, DAB", 1, sizeof fw_dab_radio_5_0_5bin);
  boot("Boot, FM-HD", 0, sizeof fw_fmhd_radio_5_0_4bin);
  sim::power_off();
}
