// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the receiver's commands share: the chip they work on, the row that
// describes a command, and the helpers with which replies are built. Each
// command file has one table of rows; the receiver looks frames up in them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/broadcast.h"
#include "sim/chip_state.h"
#include "sim/clock.h"

namespace sim {

/// The receiver behind its host interface.
struct Chip {
  const Clock& clock;
  const Air& air;
  Chip_state state = {};
  std::vector<std::uint8_t> reply = {};  ///< data that follow the four status bytes

  [[nodiscard]] Time now() const { return clock.now(); }
};

/// One command frame as it arrived, its opcode included.
using Frame = std::span<const std::uint8_t>;

/// Why a command is refused, for the log; null when it was carried out.
using Refusal = const char*;

/// States in which a command is accepted, as a set.
enum Accepted_in : std::uint8_t {
  when_waiting = 1,
  in_loader = 2,
  in_dab = 4,
  in_fmhd = 8,
  in_firmware = in_dab | in_fmhd,
  when_powered = in_loader | in_firmware,
};

struct Command {
  std::uint8_t opcode;
  const char* name;
  std::uint8_t argument_bits;  ///< bits that byte 1 may have; the others are reserved
  std::size_t shortest;        ///< frame bytes
  std::size_t longest;
  std::uint8_t accepted_in;
  std::chrono::microseconds busy;  ///< until clear-to-send
  Refusal (*handle)(Chip&, Frame);
};

[[nodiscard]] std::span<const Command> system_commands();
[[nodiscard]] std::span<const Command> property_commands();
[[nodiscard]] std::span<const Command> dab_commands();
[[nodiscard]] std::span<const Command> service_commands();
[[nodiscard]] std::span<const Command> fm_commands();
[[nodiscard]] std::span<const Command> rds_commands();

/// The row of an opcode, or null.
[[nodiscard]] const Command* find_command(std::uint8_t opcode);

/// Start `firmware` with its defaults, as BOOT does.
void start_firmware(Chip_state& state, Firmware firmware);

/// Value of a property, its default when it was never written.
[[nodiscard]] std::uint16_t property(const Chip_state& state, std::uint16_t id);

/// A tune or seek to `khz` begins now and completes after `duration`; whatever
/// was playing stops.
void begin_tune(Chip& chip, std::uint32_t khz, Time duration);

/// The last tune or seek has completed.
[[nodiscard]] bool is_tune_complete(const Chip& chip);

/// The acknowledgements that a signal status command carries in its first argument:
/// bit 3 for the signal's interrupts, bit 0 for the completed tune.
void acknowledge_signal(Chip& chip, Frame frame);

/// Something that happened at `at` has not been acknowledged since: `seen` is
/// the time of the last acknowledgement.
[[nodiscard]] bool is_pending(const Chip& chip, Time at, Time seen);

/// The ensemble whose service list the receiver holds, or null.
[[nodiscard]] const Ensemble* listed_ensemble(const Chip& chip);

/// Interrupt bits for STATUS0 and STATUS1 that the DAB, service and FM halves
/// contribute under their own firmware.
struct Interrupts {
  std::uint8_t status0 = 0;
  std::uint8_t status1 = 0;
};
[[nodiscard]] Interrupts dab_interrupts(const Chip& chip);
[[nodiscard]] Interrupts service_interrupts(const Chip& chip);
[[nodiscard]] Interrupts rds_interrupts(const Chip& chip);

/// Reserved bits and bytes of replies do not read as zero here, so that a host
/// that looks at one shows it.
inline constexpr std::uint8_t reserved_byte = 0x5A;

/// `is_set` as bit number `bit`.
[[nodiscard]] constexpr std::uint8_t flag(bool is_set, unsigned bit) {
  return static_cast<std::uint8_t>((is_set ? 1U : 0U) << bit);
}

/// Or bytes together without leaving 8 bits.
template <class... Bytes>
[[nodiscard]] constexpr std::uint8_t join(Bytes... bytes) {
  return static_cast<std::uint8_t>((unsigned{bytes} | ...));
}

/// Append the `bytes` low bytes of `value`, least significant first.
void append(std::vector<std::uint8_t>& to, std::uint64_t value, std::size_t bytes);

/// `bytes` bytes of `frame` from `at` as a number, least significant first.
[[nodiscard]] std::uint32_t number_at(Frame frame, std::size_t at, std::size_t bytes);

/// True when every byte of `bytes` is 0.
[[nodiscard]] bool is_all_zero(Frame bytes);

}  // namespace sim
