// SPDX-License-Identifier: GPL-3.0-or-later
//
// DAB tuning and reception: everything follows from the tuned frequency, what is
// on the air there, and the time that has passed since the tune.
#include <algorithm>
#include <array>

#include "sim/chip.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr auto tune_with_signal = 300ms;
constexpr auto tune_without_signal = 120ms;
constexpr auto fic_error_after = 200ms;

// The tuner's range; a list with anything else in it is refused.
constexpr std::uint32_t lowest_khz = 168160;
constexpr std::uint32_t highest_khz = 239200;

/// What the antenna gives on a frequency, null for noise.
const Ensemble* signal_at(const Chip& chip, std::uint32_t khz) {
  const auto found = std::ranges::find(chip.air.ensembles, khz, &Ensemble::khz);
  return found != chip.air.ensembles.end() && chip.state.has_antenna ? &*found : nullptr;
}

const Ensemble* received(const Chip& chip) {
  return chip.state.is_tuned ? signal_at(chip, chip.state.khz) : nullptr;
}

/// Something that follows the tune, or the antenna's return, has happened, and nobody has
/// acknowledged it since `seen`.
bool is_pending_after_tune(const Chip& chip, const After_tune& after, Time seen) {
  return after.has_value() && is_pending(chip, chip.state.signal_since + *after, seen);
}

bool has_happened(const Chip& chip, const After_tune& after) {
  return after.has_value() && chip.now() >= chip.state.signal_since + *after;
}

/// The FIC becomes readable in the time that a tune takes.
std::uint8_t fic_quality(const Chip& chip, const Ensemble& ensemble) {
  const Time passed = std::min<Time>(chip.now() - chip.state.signal_since, tune_with_signal);
  return static_cast<std::uint8_t>(ensemble.fic_quality * passed / tune_with_signal);
}

/// A signal that never becomes an ensemble shows as errors in its FIC.
After_tune fic_error(const Ensemble& ensemble) {
  return ensemble.acquired ? std::nullopt : After_tune(tune_with_signal + fic_error_after);
}

Refusal tune_freq(Chip& chip, Frame frame) {
  if (!is_all_zero(frame.subspan(3))) {
    return "the antenna capacitor is not automatic";
  }
  if (frame[2] >= chip.state.frequencies.size()) {
    return "index beyond the frequency list";
  }
  const std::uint32_t khz = chip.state.frequencies[frame[2]];
  chip.state.index = frame[2];
  begin_tune(chip, khz, signal_at(chip, khz) != nullptr ? tune_with_signal : tune_without_signal);
  return nullptr;
}

Refusal set_freq_list(Chip& chip, Frame frame) {
  const std::size_t count = frame[1];
  if (count > max_frequencies || frame.size() != 4 * (count + 1)) {
    return "length does not fit the number of frequencies";
  }
  if (!is_all_zero(frame.subspan(2, 2))) {
    return "arguments are not 0";
  }
  std::vector<std::uint32_t> list;
  for (std::size_t i = 1; i <= count; ++i) {
    const std::uint32_t khz = number_at(frame, 4 * i, 4);
    if (khz < lowest_khz || khz > highest_khz) {
      return "frequency out of the tuner's range";
    }
    list.push_back(khz);
  }
  chip.state.frequencies = std::move(list);
  return nullptr;
}

Refusal get_freq_list(Chip& chip, Frame /*frame*/) {
  const auto& list = chip.state.frequencies;
  chip.reply = {static_cast<std::uint8_t>(list.size()), reserved_byte, reserved_byte,
                reserved_byte};
  for (const std::uint32_t khz : list) {
    append(chip.reply, khz, 4);
  }
  return nullptr;
}

Refusal digrad_status(Chip& chip, Frame frame) {
  constexpr std::uint16_t rssi_high = 0xB201;
  constexpr std::uint16_t rssi_low = 0xB202;
  constexpr std::uint8_t reserved_interrupts = 0xE0;
  constexpr std::uint8_t reserved_states = 0xE2;
  const Chip_state& state = chip.state;
  const Ensemble silence = {.rssi_dbuv = noise_dbuv(state.khz)};
  const Ensemble* const signal = received(chip);
  const Ensemble& here = signal != nullptr ? *signal : silence;
  const bool is_complete = is_tune_complete(chip);
  const bool is_acquired = signal != nullptr && has_happened(chip, here.acquired);
  const bool has_fic_errors = signal != nullptr && has_happened(chip, fic_error(here));
  const int rssi = here.rssi_dbuv;
  const auto threshold = [&state](std::uint16_t id) {
    return static_cast<int>(static_cast<std::int16_t>(property(state, id)));
  };

  auto& out = chip.reply;
  out.push_back(join(
      reserved_interrupts,
      flag(is_complete && is_pending(chip, state.complete_at, state.signal_seen_at), 4),
      flag(signal != nullptr && is_pending_after_tune(chip, fic_error(here), state.signal_seen_at),
           3),
      flag(signal != nullptr && is_pending_after_tune(chip, here.acquired, state.signal_seen_at),
           2),
      flag(is_complete && rssi > threshold(rssi_high), 1),
      flag(is_complete && rssi < threshold(rssi_low), 0)));
  out.push_back(join(reserved_states, flag(!state.is_playing, 4), flag(has_fic_errors, 3),
                     flag(is_acquired, 2), flag(signal != nullptr && is_complete, 0)));
  out.push_back(state.is_tuned ? here.rssi_dbuv : std::uint8_t{0});
  out.push_back(is_complete ? here.snr_db : std::uint8_t{0});
  out.push_back(fic_quality(chip, here));
  out.push_back(is_complete ? here.cnr_db : std::uint8_t{0});
  append(out, here.fib_errors, 2);
  append(out, state.khz, 4);
  out.push_back(state.index);
  out.push_back(static_cast<std::uint8_t>(here.fft_offset));
  append(out, here.antenna_cap, 2);
  append(out, is_acquired ? here.cu_level : 0U, 2);
  out.push_back(here.fast_detect);

  acknowledge_signal(chip, frame);
  return nullptr;
}

Refusal event_status(Chip& chip, Frame frame) {
  constexpr std::uint8_t reserved_interrupts = 0x34;
  constexpr std::uint8_t reserved_states = 0xFC;
  const Ensemble silence;
  const Ensemble* const signal = received(chip);
  const Ensemble& here = signal != nullptr ? *signal : silence;
  const bool has_list = listed_ensemble(chip) != nullptr;
  const Time seen = chip.state.events_seen_at;
  chip.reply = {
      join(reserved_interrupts, flag(is_pending_after_tune(chip, here.announcement, seen), 3),
           flag(is_pending_after_tune(chip, here.frequency_info, seen), 1),
           flag(is_pending_after_tune(chip, here.list, seen), 0)),
      join(reserved_states, flag(has_happened(chip, here.frequency_info), 1), flag(has_list, 0))};
  append(chip.reply, has_list ? here.list_version : 0U, 2);
  if (frame[1] == 1) {
    chip.state.events_seen_at = chip.now();
  }
  return nullptr;
}

Refusal get_time(Chip& chip, Frame frame) {
  constexpr std::uint8_t coordinated_universal = 1;
  if (frame[1] != coordinated_universal) {
    return "only UTC is transmitted";
  }
  const Ensemble* const signal = received(chip);
  if (signal == nullptr || !has_happened(chip, signal->time)) {
    chip.reply.assign(7, 0);
    return nullptr;
  }
  const auto utc = chip.clock.utc(chip.now());
  const auto day = std::chrono::floor<std::chrono::days>(utc);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(utc - day);
  append(chip.reply, static_cast<std::uint64_t>(static_cast<int>(date.year())), 2);
  append(chip.reply, static_cast<unsigned>(date.month()), 1);
  append(chip.reply, static_cast<unsigned>(date.day()), 1);
  append(chip.reply, static_cast<std::uint64_t>(time.hours().count()), 1);
  append(chip.reply, static_cast<std::uint64_t>(time.minutes().count()), 1);
  append(chip.reply, static_cast<std::uint64_t>(time.seconds().count()), 1);
  return nullptr;
}

constexpr auto commands = std::to_array<Command>({
    {0xB0, "DAB_TUNE_FREQ", 0x00, 6, 6, in_dab, 30us, tune_freq},
    {0xB2, "DAB_DIGRAD_STATUS", 0x09, 2, 2, in_dab, 0us, digrad_status},
    {0xB3, "DAB_GET_EVENT_STATUS", 0x01, 2, 2, in_dab, 0us, event_status},
    {0xB8, "DAB_SET_FREQ_LIST", 0xFF, 4, 4 + 4 * max_frequencies, in_dab, 60us, set_freq_list},
    {0xB9, "DAB_GET_FREQ_LIST", 0x00, 2, 2, in_dab, 0us, get_freq_list},
    {0xBC, "DAB_GET_TIME", 0x01, 2, 2, in_dab, 0us, get_time},
});

}  // namespace

std::span<const Command> dab_commands() { return commands; }

const Ensemble* listed_ensemble(const Chip& chip) {
  const Ensemble* const signal = received(chip);
  return signal != nullptr && has_happened(chip, signal->list) ? signal : nullptr;
}

Interrupts dab_interrupts(const Chip& chip) {
  constexpr unsigned link_change = 5;
  constexpr unsigned event_change = 5;
  const Ensemble* const signal = received(chip);
  if (signal == nullptr) {
    return {};
  }
  const Chip_state& state = chip.state;
  const bool has_link_changed =
      is_pending_after_tune(chip, signal->acquired, state.signal_seen_at) ||
      is_pending_after_tune(chip, fic_error(*signal), state.signal_seen_at);
  const bool has_event =
      is_pending_after_tune(chip, signal->list, state.events_seen_at) ||
      is_pending_after_tune(chip, signal->frequency_info, state.events_seen_at) ||
      is_pending_after_tune(chip, signal->announcement, state.events_seen_at);
  return {.status0 = flag(has_link_changed, link_change), .status1 = flag(has_event, event_change)};
}

}  // namespace sim
