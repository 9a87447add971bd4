// SPDX-License-Identifier: GPL-3.0-or-later
//
// FM tuning, seeking and signal quality.
#include <algorithm>
#include <array>

#include "sim/receiver.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t unit_khz = 10;
constexpr std::uint32_t lowest_fm_khz = 64000;
constexpr std::uint32_t highest_fm_khz = 108000;
constexpr std::uint32_t pull_khz = 100;

constexpr Time tune_time = 60ms;
constexpr Time seek_step_time = 15ms;

// The band of a seek, its raster, and what a station needs to be found.
constexpr std::uint32_t seek_bottom_khz = 87500;
constexpr std::uint32_t seek_top_khz = 108000;
constexpr std::uint32_t seek_step_khz = 100;
constexpr std::uint32_t channels = (seek_top_khz - seek_bottom_khz) / seek_step_khz + 1;
constexpr std::uint8_t lowest_valid_rssi_dbuv = 17;
constexpr std::uint8_t lowest_valid_snr_db = 10;

const Fm_station* station_at(const Receiver& chip, std::uint32_t khz) {
  const auto found = std::ranges::find(chip.air.stations, khz, &Fm_station::khz);
  return found != chip.air.stations.end() && chip.state.has_antenna ? &*found : nullptr;
}

bool is_receivable(const Fm_station& station) {
  return station.rssi_dbuv >= lowest_valid_rssi_dbuv && station.snr_db >= lowest_valid_snr_db;
}

Refusal fm_tune(Receiver& chip, Frame frame) {
  if (!is_all_zero(frame.subspan(4))) return "the antenna capacitor is not automatic";
  const std::uint32_t khz = number_at(frame, 2, 2) * unit_khz;
  if (khz < lowest_fm_khz || khz > highest_fm_khz) return "frequency out of the tuner's range";
  begin_tune(chip, khz, tune_time);
  return nullptr;
}

Refusal fm_seek(Receiver& chip, Frame frame) {
  constexpr std::uint8_t wraps = 0x01;
  constexpr std::uint8_t downwards = 0x02;
  if ((frame[2] & ~unsigned{wraps | downwards}) != 0 || !is_all_zero(frame.subspan(3))) {
    return "reserved argument bits are set or the antenna capacitor is not automatic";
  }
  const bool is_up = (frame[2] & downwards) == 0;
  const std::uint32_t limit = is_up ? seek_top_khz : seek_bottom_khz;
  // From between two channels the first step goes to the next one in the seek's direction.
  const std::uint32_t offset =
      std::clamp(chip.state.khz, seek_bottom_khz, seek_top_khz) - seek_bottom_khz;
  std::uint32_t channel = (offset + (is_up ? 0 : seek_step_khz - 1)) / seek_step_khz;
  std::uint32_t khz = seek_bottom_khz + channel * seek_step_khz;
  bool has_hit_limit = false;
  std::uint32_t steps = 0;
  while (steps < channels) {
    has_hit_limit = has_hit_limit || khz == limit;
    if (khz == limit && (frame[2] & wraps) == 0) break;
    channel = (channel + (is_up ? 1 : channels - 1)) % channels;
    khz = seek_bottom_khz + channel * seek_step_khz;
    ++steps;
    const Fm_station* const station = station_at(chip, khz);
    if (station != nullptr && is_receivable(*station)) break;
  }
  begin_tune(chip, khz, seek_step_time * (steps + 1));
  chip.state.has_hit_band_limit = has_hit_limit;
  return nullptr;
}

Refusal rsq_status(Receiver& chip, Frame frame) {
  constexpr std::uint8_t reserved_interrupts = 0xF0;
  constexpr std::uint8_t reserved_states = 0x4C;
  constexpr std::uint8_t high_snr_db = 30;
  constexpr std::uint8_t low_snr_db = 6;
  constexpr std::uint8_t high_rssi_dbuv = 60;
  constexpr std::uint8_t low_rssi_dbuv = 15;
  constexpr std::uint8_t hd_threshold = 50;
  constexpr std::uint8_t hd_filter_loss = 3;
  const Receiver_state& state = chip.state;
  const Fm_reception here = fm_reception(chip);
  const Fm_station& station = here.station;
  const bool is_complete = is_tune_complete(chip);
  const bool is_new = is_complete && is_pending(chip, state.complete_at, state.signal_seen_at);
  const auto filtered_hd =
      static_cast<std::uint8_t>(station.hd_level - std::min(station.hd_level, hd_filter_loss));
  auto& out = chip.reply;
  out.push_back(join(reserved_interrupts, flag(is_new && station.snr_db >= high_snr_db, 3),
                     flag(is_new && station.snr_db <= low_snr_db, 2),
                     flag(is_new && station.rssi_dbuv >= high_rssi_dbuv, 1),
                     flag(is_new && station.rssi_dbuv <= low_rssi_dbuv, 0)));
  out.push_back(join(reserved_states, flag(is_complete && state.has_hit_band_limit, 7),
                     flag(is_complete && station.hd_level >= hd_threshold, 5),
                     flag(is_complete && filtered_hd >= hd_threshold, 4),
                     flag(is_complete && here.is_beside_station, 1), flag(here.is_valid, 0)));
  append(out, state.khz / unit_khz, 2);
  out.insert(out.end(), {static_cast<std::uint8_t>(station.offset), station.rssi_dbuv,
                         station.snr_db, station.multipath});
  append(out, station.antenna_cap, 2);
  out.insert(out.end(), {reserved_byte, station.hd_level, filtered_hd});
  out.insert(out.end(), 5, reserved_byte);

  acknowledge_signal(chip, frame);
  return nullptr;
}

constexpr auto fm_table = std::to_array<Command>({
    {0x30, "FM_TUNE_FREQ", 0x00, 7, 7, in_fmhd, 30us, fm_tune},
    {0x31, "FM_SEEK_START", 0x00, 6, 6, in_fmhd, 30us, fm_seek},
    {0x32, "FM_RSQ_STATUS", 0x09, 2, 2, in_fmhd, 0us, rsq_status},
});

}  // namespace

std::span<const Command> fm_commands() { return fm_table; }

Fm_reception fm_reception(const Receiver& chip) {
  const Receiver_state& state = chip.state;
  Fm_reception here;
  here.station.rssi_dbuv = state.is_tuned ? noise_dbuv(state.khz) : std::uint8_t{0};
  here.station.has_rds = false;
  if (!is_tune_complete(chip)) return here;
  if (const Fm_station* const station = station_at(chip, state.khz)) {
    here.station = *station;
    here.is_valid = is_receivable(*station);
    return here;
  }
  here.is_beside_station =
      state.has_antenna && std::ranges::any_of(chip.air.stations, [&state](const auto& station) {
        return station.khz < state.khz + pull_khz && state.khz < station.khz + pull_khz;
      });
  return here;
}

}  // namespace sim
