// SPDX-License-Identifier: GPL-3.0-or-later
#include "si468x/protocol.h"

#include <algorithm>
#include <cstdio>

#include "si468x/bus.h"
#include "si468x/wire.h"

using namespace si468x;

namespace {

constexpr unsigned cts_poll_limit = 50;
constexpr unsigned first_cts_wait_us = 50;
constexpr unsigned cts_wait_step_us = 1000;

// Status 3: arbiter error, dropped data during command write, data dropped during read reply.
constexpr std::uint8_t data_or_arbiter_bits = 0x0E;

std::int16_t result_of(Status_fault fault) {
  switch (fault) {
    case Status_fault::none:
      return result::ok;
    case Status_fault::data_or_arbiter_error:
      return result::transfer_failed;
    case Status_fault::command_error:
    case Status_fault::non_recoverable:
      break;
  }
  return result::refused;
}

/// Clear the caller's bytes, so that the first one sent is the read-reply command, and exchange
/// them.
std::int16_t exchange_cleared(std::uint8_t* buf, std::uint16_t len) {
  Si468x_clear_array(buf, len);
  return Si468x_SPI_RW_data(buf, len);
}

/// Poll the status into `status` until it shows CTS. The waits grow, since a chip that is not ready
/// soon will not be ready for long.
std::int16_t wait_for_cts(std::uint8_t* status) {
  unsigned wait_us = first_cts_wait_us;
  for (unsigned waits = 0; waits < cts_poll_limit; ++waits) {
    if (exchange_cleared(status, status_read_bytes) != 0) {
      return failed(numbered(Error::send_cmd_poll, waits), result::transfer_failed);
    }
    if (is_clear_to_send(status)) return result::ok;
    Si468x_delay_us(wait_us);
    wait_us += cts_wait_step_us;
  }
  return failed(Error::no_cts, result::timed_out);
}

}  // namespace

namespace si468x {

bool is_clear_to_send(const std::uint8_t* frame) { return has_bit(frame[status_0], 7); }

Status_fault find_status_fault(const std::uint8_t* frame) {
  if (has_bit(frame[status_0], 6)) return Status_fault::command_error;
  if ((frame[status_3] & data_or_arbiter_bits) != 0) return Status_fault::data_or_arbiter_error;
  if (has_bit(frame[status_3], 0)) return Status_fault::non_recoverable;
  return Status_fault::none;
}

std::int16_t judge_status(const std::uint8_t* frame, Error code) {
  const auto fault = find_status_fault(frame);
  return fault == Status_fault::none ? result::ok : failed(code, result_of(fault));
}

}  // namespace si468x

std::int16_t Si468x_send_cmd(std::uint8_t* cmd, std::uint8_t* reply, std::uint16_t cmd_len,
                             std::uint16_t reply_len) {
  if (Si468x_SPI_RW_data(cmd, cmd_len) != 0) {
    return failed(Error::send_cmd_write, result::transfer_failed);
  }
  std::array<std::uint8_t, status_read_bytes> status{};
  if (const auto outcome = wait_for_cts(status.data()); outcome != 0) return outcome;
  if (const auto outcome = judge_status(status.data(), Error::cts_status); outcome != 0) {
    return outcome;
  }
  if (reply_len == 0) return result::ok;
  if (reply == nullptr) return failed(Error::send_cmd_no_buffer, result::invalid);
  if (exchange_cleared(reply, reply_len) != 0) {
    return failed(Error::send_cmd_reply, result::transfer_failed);
  }
  // A reply may be shorter than the status bytes: those that it lacks do not complain.
  std::array<std::uint8_t, reply_data> judged{};
  std::copy_n(reply, std::min<std::size_t>(reply_len, judged.size()), judged.begin());
  return judge_status(judged.data(), Error::send_cmd_reply_status);
}

std::int16_t Si468x_rd_reply(std::uint8_t* status) {
  if (exchange_cleared(status, status_read_bytes) != 0) {
    return failed(Error::rd_reply, result::transfer_failed);
  }
  return judge_status(status, Error::rd_reply_status);
}

std::int16_t Si468x_read_reply(std::uint8_t* buf, std::uint16_t len) {
  if (exchange_cleared(buf, len) != 0) return failed(Error::read_reply, result::transfer_failed);
  return result::ok;
}

std::int16_t Si468x_send_cmd_simple(std::uint8_t* cmd, std::uint16_t len) {
  if (Si468x_SPI_RW_data(cmd, len) != 0) {
    return failed(Error::send_cmd_simple, result::transfer_failed);
  }
  return result::ok;
}

std::int16_t Si468x_check_status_bits(std::uint8_t* reply) {
  const auto fault = find_status_fault(reply);
  switch (fault) {
    case Status_fault::none:
      return result::ok;
    case Status_fault::command_error:
      return failed(Error::status_command_error, result_of(fault));
    case Status_fault::data_or_arbiter_error:
      return failed(Error::status_data_or_arbiter_error, result_of(fault));
    case Status_fault::non_recoverable:
      break;
  }
  return failed(Error::status_non_recoverable, result_of(fault));
}

std::int16_t Si468x_min(std::int16_t a, std::int16_t b) { return std::min(a, b); }

void Si468x_clear_array(std::uint8_t* a, std::uint16_t n) { std::fill_n(a, n, std::uint8_t{0}); }

void Si468x_byte_array_copy(std::uint8_t* dst, std::uint8_t* src, std::uint16_t n) {
  // Not the library's copy: overlapping arrays get what this order gives.
  while (n > 0) {
    --n;
    dst[n] = src[n];
  }
}

void Si468x_hex_print(std::uint8_t* a, std::uint16_t n, char* label) {
  std::printf("%s", label);
  for (std::uint16_t i = 0; i < n; ++i) std::printf("%02x ", a[i]);
  std::putchar('\n');
}
