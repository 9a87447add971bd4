// SPDX-License-Identifier: GPL-3.0-or-later
//
// DAB tuning and reception: everything follows from the tuned frequency, what is
// on the air there, and the time that has passed since the tune.
#include <algorithm>
#include <array>

#include "sim/receiver.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

constexpr auto tune_with_signal = 300ms;
constexpr auto tune_without_signal = 120ms;
constexpr auto fic_error_after = 200ms;

// The tuner's range; a list with anything else in it is refused.
constexpr std::uint32_t lowest_dab_khz = 168160;
constexpr std::uint32_t highest_dab_khz = 239200;

/// What the antenna gives on a frequency; `khz` is 0 where nothing is.
const Ensemble& signal_at(const Receiver& chip, std::uint32_t khz) {
  static const Ensemble silence;
  const auto found = std::ranges::find(chip.air.ensembles, khz, &Ensemble::khz);
  return found != chip.air.ensembles.end() && chip.state.has_antenna ? *found : silence;
}

const Ensemble& received(const Receiver& chip) { return signal_at(chip, chip.state.khz); }

/// Something that follows the tune, or the antenna's return, has happened, and nobody has
/// acknowledged it since `seen`.
bool is_pending_after_tune(const Receiver& chip, const After_tune& after, Time seen) {
  return after.has_value() && is_pending(chip, chip.state.signal_since + *after, seen);
}

bool has_happened(const Receiver& chip, const After_tune& after) {
  return after.has_value() && chip.now() >= chip.state.signal_since + *after;
}

/// The FIC becomes readable in the time that a tune takes.
std::uint8_t fic_quality(const Receiver& chip, const Ensemble& ensemble) {
  const Time passed = std::min<Time>(chip.now() - chip.state.signal_since, tune_with_signal);
  return static_cast<std::uint8_t>(ensemble.fic_quality * passed / tune_with_signal);
}

/// A signal that never becomes an ensemble shows as errors in its FIC.
After_tune fic_error(const Ensemble& ensemble) {
  const bool is_useless = ensemble.khz != 0 && !ensemble.acquired;
  return is_useless ? After_tune(tune_with_signal + fic_error_after) : std::nullopt;
}

Refusal tune_freq(Receiver& chip, Frame frame) {
  if (!is_all_zero(frame.subspan(3))) return "the antenna capacitor is not automatic";
  if (frame[2] >= chip.state.frequencies.size()) return "index beyond the frequency list";
  const std::uint32_t khz = chip.state.frequencies[frame[2]];
  chip.state.index = frame[2];
  begin_tune(chip, khz, signal_at(chip, khz).khz != 0 ? tune_with_signal : tune_without_signal);
  return nullptr;
}

Refusal set_freq_list(Receiver& chip, Frame frame) {
  const std::size_t count = frame[1];
  if (count > max_frequencies || frame.size() != 4 * (count + 1)) {
    return "length does not fit the number of frequencies";
  }
  if (!is_all_zero(frame.subspan(2, 2))) return "arguments are not 0";
  std::vector<std::uint32_t> list;
  for (std::size_t i = 1; i <= count; ++i) {
    const std::uint32_t khz = number_at(frame, 4 * i, 4);
    if (khz < lowest_dab_khz || khz > highest_dab_khz) return "frequency out of the tuner's range";
    list.push_back(khz);
  }
  chip.state.frequencies = std::move(list);
  return nullptr;
}

Refusal get_freq_list(Receiver& chip, Frame /*frame*/) {
  const auto& list = chip.state.frequencies;
  chip.reply = {static_cast<std::uint8_t>(list.size()), reserved_byte, reserved_byte,
                reserved_byte};
  for (const std::uint32_t khz : list) append(chip.reply, khz, 4);
  return nullptr;
}

Refusal digrad_status(Receiver& chip, Frame frame) {
  constexpr std::uint8_t reserved_interrupts = 0xE0;
  constexpr std::uint8_t reserved_states = 0xE2;
  const Receiver_state& state = chip.state;
  const Ensemble& here = received(chip);
  const bool is_complete = is_tune_complete(chip);
  const bool is_acquired = has_happened(chip, here.acquired);
  const Time seen = state.signal_seen_at;

  auto& out = chip.reply;
  out = {
      join(reserved_interrupts, flag(is_complete && is_pending(chip, state.complete_at, seen), 4),
           flag(is_pending_after_tune(chip, fic_error(here), seen), 3),
           flag(is_pending_after_tune(chip, here.acquired, seen), 2)),
      join(reserved_states, flag(!state.is_playing, 4),
           flag(has_happened(chip, fic_error(here)), 3), flag(is_acquired, 2),
           flag(here.khz != 0 && is_complete, 0)),
      here.khz != 0    ? here.rssi_dbuv
      : state.is_tuned ? noise_dbuv(state.khz)
                       : std::uint8_t{0},
      is_complete ? here.snr_db : std::uint8_t{0},
      fic_quality(chip, here),
      is_complete ? here.cnr_db : std::uint8_t{0}};
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

Refusal event_status(Receiver& chip, Frame frame) {
  constexpr std::uint8_t reserved_interrupts = 0x34;
  constexpr std::uint8_t reserved_states = 0xFC;
  const Ensemble& here = received(chip);
  const bool has_list = has_happened(chip, here.list);
  const bool is_new = is_pending_after_tune(chip, here.list, chip.state.events_seen_at);
  chip.reply = {join(reserved_interrupts, flag(is_new, 0)),
                join(reserved_states, flag(has_list, 0))};
  append(chip.reply, has_list ? here.list_version : 0U, 2);
  if (frame[1] == 1) chip.state.events_seen_at = chip.now();
  return nullptr;
}

Refusal get_time(Receiver& chip, Frame frame) {
  constexpr std::uint8_t coordinated_universal = 1;
  if (frame[1] != coordinated_universal) return "only UTC is transmitted";
  if (!has_happened(chip, received(chip).time)) {
    chip.reply.assign(7, 0);
    return nullptr;
  }
  const auto utc = chip.clock.utc(chip.now());
  const auto day = std::chrono::floor<std::chrono::days>(utc);
  const std::chrono::year_month_day date(day);
  const auto second = static_cast<unsigned>((utc - day).count());
  append(chip.reply, static_cast<unsigned>(static_cast<int>(date.year())), 2);
  append(chip.reply, static_cast<unsigned>(date.month()), 1);
  append(chip.reply, static_cast<unsigned>(date.day()), 1);
  append(chip.reply, second / 3600, 1);
  append(chip.reply, second / 60 % 60, 1);
  append(chip.reply, second % 60, 1);
  return nullptr;
}

constexpr auto dab_table = std::to_array<Command>({
    {0xB0, "DAB_TUNE_FREQ", 0x00, 6, 6, in_dab, 30us, tune_freq},
    {0xB2, "DAB_DIGRAD_STATUS", 0x09, 2, 2, in_dab, 0us, digrad_status},
    {0xB3, "DAB_GET_EVENT_STATUS", 0x01, 2, 2, in_dab, 0us, event_status},
    {0xB8, "DAB_SET_FREQ_LIST", 0xFF, 4, 4 + 4 * max_frequencies, in_dab, 60us, set_freq_list},
    {0xB9, "DAB_GET_FREQ_LIST", 0x00, 2, 2, in_dab, 0us, get_freq_list},
    {0xBC, "DAB_GET_TIME", 0x01, 2, 2, in_dab, 0us, get_time},
});

}  // namespace

std::span<const Command> dab_commands() { return dab_table; }

const Ensemble* listed_ensemble(const Receiver& chip) {
  return has_happened(chip, received(chip).list) ? &received(chip) : nullptr;
}

unsigned dab_interrupts(const Receiver& chip) {
  const Receiver_state& state = chip.state;
  const Ensemble& here = received(chip);
  const bool has_link_changed = is_pending_after_tune(chip, here.acquired, state.signal_seen_at) ||
                                is_pending_after_tune(chip, fic_error(here), state.signal_seen_at);
  const bool has_list = is_pending_after_tune(chip, here.list, state.events_seen_at);
  return flag(has_link_changed, 5) | unsigned{flag(has_list, 5)} << 8;
}

}  // namespace sim
