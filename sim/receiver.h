// SPDX-License-Identifier: GPL-3.0-or-later
//
// A Si468x as the host sees it: a state machine over chip-select frames. A frame
// whose first byte is 0x00 reads status and reply; any other is a command, looked
// up in the command files' tables. It knows nothing of registers, pins and files.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "sim/broadcast.h"
#include "sim/clock.h"
#include "sim/receiver_state.h"
#include "sim/spi_device.h"

namespace sim {

/// One command frame as it arrived, its opcode included.
using Frame = std::span<const std::uint8_t>;

/// Why a command is refused, for the log; null when it was carried out.
using Refusal = const char*;

class Receiver final : public Spi_device {
 public:
  /// `log` is told, in plain words, of every command that was refused or lost.
  /// Clock and air must outlive the receiver.
  Receiver(const Clock& its_clock, const Air& its_air, std::function<void(const std::string&)> log)
      : clock(its_clock), air(its_air), log_(std::move(log)) {}

  void select() override;
  std::uint8_t exchange(std::uint8_t mosi) override;
  void deselect() override;
  void reset_line(bool is_high) override;
  /// For faults: the command that is being received will be refused, or lost.
  enum class Command_fault : std::uint8_t { none, refused, lost };
  void spoil_command(Command_fault fault) { command_fault_ = fault; }
  /// For faults: power is lost and returns.
  void power_cycle();

  // What the command files work on.
  const Clock& clock;
  const Air& air;
  Receiver_state state = {};             ///< all that outlives the process
  std::vector<std::uint8_t> reply = {};  ///< data that follow the four status bytes

  Time now() const { return clock.now(); }

 private:
  bool is_ready() const { return now() >= state.busy_until; }
  std::uint8_t read_byte(std::size_t at) const;
  std::uint8_t status_byte(std::size_t number) const;
  void look_at_antenna();
  void run_command();

  std::function<void(const std::string&)> log_;
  std::vector<std::uint8_t> frame_;  ///< command bytes, cut one byte after the longest command
  std::size_t position_ = 0;         ///< bytes exchanged in this frame
  bool is_read_ = false;
  Command_fault command_fault_ = Command_fault::none;
};

/// What the chip drives while it listens to a command, and in byte 0 of a read.
inline constexpr std::uint8_t idle_byte = 0xFF;

/// Bits of STATUS0 and STATUS3.
inline constexpr std::uint8_t clear_to_send_bit = 0x80;
inline constexpr std::uint8_t command_error_bit = 0x40;
inline constexpr std::uint8_t read_dropped_bit = 0x08;
inline constexpr std::uint8_t write_dropped_bit = 0x04;
inline constexpr std::uint8_t arbiter_error_bit = 0x02;
inline constexpr std::uint8_t non_recoverable_bit = 0x01;

/// Byte of a read at which STATUS0 and STATUS3 arrive.
inline constexpr std::size_t status0_at = 1;
inline constexpr std::size_t status3_at = 4;

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
  Refusal (*handle)(Receiver&, Frame);
};

std::span<const Command> system_commands();
std::span<const Command> dab_commands();
std::span<const Command> service_commands();
std::span<const Command> fm_commands();
std::span<const Command> rds_commands();

/// The row of an opcode, or null.
const Command* find_command(std::uint8_t opcode);

/// Start `firmware` with its defaults, as BOOT does.
void start_firmware(Receiver_state& state, Firmware firmware);

/// Value of a property, its default when it was never written.
std::uint16_t property(const Receiver_state& state, std::uint16_t id);

/// A tune or seek to `khz` begins now and completes after `duration`; whatever was playing stops.
void begin_tune(Receiver& chip, std::uint32_t khz, Time duration);

/// The last tune or seek has completed.
bool is_tune_complete(const Receiver& chip);

/// The acknowledgements that a signal status command carries in its first argument:
/// bit 3 for the signal's interrupts, bit 0 for the completed tune.
void acknowledge_signal(Receiver& chip, Frame frame);

/// Something happened at `at`, later than the last acknowledgement at `seen`.
bool is_pending(const Receiver& chip, Time at, Time seen);

/// The ensemble whose service list the receiver holds, or null.
const Ensemble* listed_ensemble(const Receiver& chip);

/// FM reception at the tuned frequency: noise where no station is.
struct Fm_reception {
  Fm_station station;
  bool is_valid = false;           ///< tuned, and strong enough to be found by a seek
  bool is_beside_station = false;  ///< a station is near enough to pull the tuner
};
Fm_reception fm_reception(const Receiver& chip);

/// Interrupt bits that the DAB, service and FM halves contribute under their own
/// firmware: STATUS0 in the low byte, STATUS1 in the high one.
unsigned dab_interrupts(const Receiver& chip);
unsigned service_interrupts(const Receiver& chip);
unsigned rds_interrupts(const Receiver& chip);

/// Reserved bits and bytes of replies do not read as zero here, so that a host
/// that looks at one shows it.
inline constexpr std::uint8_t reserved_byte = 0x5A;

/// `is_set` as bit number `bit`.
constexpr std::uint8_t flag(bool is_set, unsigned bit) {
  return static_cast<std::uint8_t>((is_set ? 1U : 0U) << bit);
}

/// Or bytes together without leaving 8 bits.
template <class... Bytes>
constexpr std::uint8_t join(Bytes... bytes) {
  return static_cast<std::uint8_t>((unsigned{bytes} | ...));
}

/// Append the `bytes` low bytes of `value`, least significant first.
void append(std::vector<std::uint8_t>& to, std::uint64_t value, std::size_t bytes);

/// `bytes` bytes of `frame` from `at` as a number, least significant first.
std::uint32_t number_at(Frame frame, std::size_t at, std::size_t bytes);

/// True when every byte of `bytes` is 0.
bool is_all_zero(Frame bytes);

}  // namespace sim
