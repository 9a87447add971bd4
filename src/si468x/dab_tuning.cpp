// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/dab_tuning.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include "si468x/bus.h"
#include "si468x/protocol.h"
#include "si468x/seek_tune.h"
#include "si468x/wire.h"

using namespace si468x;

namespace {

constexpr std::size_t bytes_per_frequency = 4;

constexpr std::size_t set_list_header_bytes = 4;
constexpr std::size_t set_list_frame_bytes =
    set_list_header_bytes + dab_freq_list_limit * bytes_per_frequency;

constexpr std::size_t list_count_byte = reply_data;
constexpr std::size_t list_count_reply_bytes = list_count_byte + 1;
constexpr std::size_t list_entries_byte = 9;
constexpr std::size_t longest_list_reply_bytes =
    list_entries_byte + dab_freq_list_claim_limit * bytes_per_frequency;

constexpr std::uint8_t lowest_usable_fic_quality = 30;

/// The results of a failed step in the scan's terms, which keep -1 for "no service list".
std::int16_t failed_step(Error code, std::int16_t outcome) {
  return failed(code, std::min(outcome, result::refused));
}

/// Wait until the chip has announced a new service list and, with that event acknowledged, still
/// shows the same version: the list is then complete.
std::int16_t wait_for_stable_service_list() {
  constexpr unsigned poll_limit = 50;
  constexpr unsigned poll_wait_ms = 200;
  std::optional<std::uint16_t> announced_version;
  for (unsigned poll = 0; poll < poll_limit; ++poll) {
    Si468x_DAB_event_status events;
    if (const auto outcome = events.get_new_status(); outcome != 0) {
      return failed_step(Error::tune_save_events, outcome);
    }
    if (events.serviceListAvailable != 0) {
      if (events.serviceListVersion == announced_version) return 1;
      if (events.serviceListINT != 0) announced_version = events.serviceListVersion;
    }
    Si468x_delay_ms(poll_wait_ms);
  }
  return failed(Error::tune_save_no_list, -1);
}

}  // namespace

std::int16_t Si468x_DAB_set_freq_list(unsigned int* list, unsigned char count) {
  if (count > dab_freq_list_limit) return failed(Error::set_freq_list, result::invalid);
  std::array<std::uint8_t, set_list_frame_bytes> frame{opcode::dab_set_freq_list, count};
  std::size_t end = set_list_header_bytes;
  for (std::size_t i = 0; i < count; ++i) {
    for (unsigned n = 0; n < bytes_per_frequency; ++n) frame[end++] = octet(list[i], n);
  }
  const auto outcome = Si468x_send_cmd(frame.data(), nullptr, static_cast<std::uint16_t>(end), 0);
  return outcome < 0 ? failed(Error::set_freq_list, outcome) : result::ok;
}

std::int16_t Si468x_DAB_get_freq_list(unsigned int* list, unsigned char* count) {
  constexpr auto command = command_with(opcode::dab_get_freq_list, 0x00);
  *count = 0;
  std::array<std::uint8_t, list_count_reply_bytes> count_reply{};
  if (const auto outcome = send_command(command, count_reply); outcome < 0) {
    return failed(Error::get_freq_list, outcome);
  }
  *count = count_reply[list_count_byte];

  std::array<std::uint8_t, longest_list_reply_bytes> reply{};
  auto frame = command;
  const auto reply_bytes = list_entries_byte + *count * bytes_per_frequency;
  const auto outcome = Si468x_send_cmd(frame.data(), reply.data(), frame.size(),
                                       static_cast<std::uint16_t>(reply_bytes));
  if (outcome < 0) return failed(Error::get_freq_list_entries, outcome);
  for (std::size_t i = 0; i < *count; ++i) {
    list[i] = le32(&reply[list_entries_byte + i * bytes_per_frequency]);
  }
  return result::ok;
}

std::int16_t Si468x_DAB_tune_freq(unsigned char index) {
  constexpr std::uint8_t automatic = 0x00;  // injection, and antenna capacitor
  const auto outcome = send_command(std::array<std::uint8_t, 6>{opcode::dab_tune_freq, automatic,
                                                                index, 0x00, automatic, automatic});
  if (outcome < 0) return failed(Error::dab_tune, outcome);
  return wait_for_seek_tune(Error::dab_tune_timeout);
}

std::int16_t Si468x_DAB_tune_freq_save(unsigned char index, Si468x_DAB_digrad_status& status) {
  if (const auto outcome = Si468x_DAB_tune_freq(index); outcome != 0) {
    return failed_step(Error::tune_save, outcome);
  }
  if (const auto outcome = status.get_new_status(); outcome != 0) {
    return failed_step(Error::tune_save_status, outcome);
  }
  if (status.valid == 0 || status.FIC_quality < lowest_usable_fic_quality) return 0;
  return wait_for_stable_service_list();
}

std::int16_t Si468x_DAB_tune_and_acquire(unsigned char index) {
  constexpr unsigned after_tune_ms = 500;
  constexpr unsigned check_limit = 10;
  constexpr unsigned check_wait_ms = 200;
  Si468x_DAB_digrad_status status;
  const auto tuned = Si468x_DAB_tune_freq(index);
  Si468x_delay_ms(after_tune_ms);
  for (unsigned check = 0; check < check_limit; ++check) {
    const bool acquired = status.get_new_status() == 0 && status.acq != 0;
    Si468x_delay_ms(check_wait_ms);
    if (acquired) return result::ok;
  }
  return tuned < 0 ? tuned : result::timed_out;
}

std::int16_t tune_freq(unsigned char index) {
  if (Si468x_DAB_tune_and_acquire(index) != 0) {
    std::puts("Could not tune to frequency\n");
    return -1;
  }
  std::puts("Tuned.\n");
  return 0;
}
