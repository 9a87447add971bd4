// SPDX-License-Identifier: GPL-3.0-or-later
//
// A Si468x as the host sees it: a state machine over chip-select frames. A frame
// whose first byte is 0x00 reads status and reply; any other is a command, looked
// up in the command tables. It knows nothing of registers, pins and files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sim/chip.h"
#include "sim/spi_device.h"

namespace sim {

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

class Receiver final : public Spi_device {
 public:
  /// `log` is told, in plain words, of every command that was refused or lost.
  /// Clock and air must outlive the receiver.
  Receiver(const Clock& clock, const Air& air, std::function<void(const std::string&)> log);

  void select() override;
  std::uint8_t exchange(std::uint8_t mosi) override;
  void deselect() override;
  void reset_line(bool high) override;

  /// All that outlives the process, to be saved and restored.
  [[nodiscard]] const Chip_state& state() const { return chip_.state; }
  void restore(const Chip_state& state) { chip_.state = state; }

  /// For faults: the command that is being received will be refused, or lost.
  enum class Mishap : std::uint8_t { none, refused, lost };
  void spoil_command(Mishap mishap) { mishap_ = mishap; }

  /// For faults: power is lost and returns.
  void power_cycle();

 private:
  [[nodiscard]] bool is_ready() const { return chip_.now() >= chip_.state.busy_until; }
  [[nodiscard]] std::uint8_t read_byte(std::size_t at) const;
  [[nodiscard]] std::uint8_t status_byte(std::size_t number) const;
  [[nodiscard]] Refusal check(const Command* command) const;
  void look_at_antenna();
  void run_command();

  Chip chip_;
  std::function<void(const std::string&)> log_;
  std::vector<std::uint8_t> frame_;  ///< command bytes, cut one byte after the longest command
  std::size_t position_ = 0;         ///< bytes exchanged in this frame
  bool is_read_ = false;
  Mishap mishap_ = Mishap::none;
};

}  // namespace sim
