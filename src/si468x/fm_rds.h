// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the receiver's RDS decoder has of the tuned FM station. Command `rds_status`.
#pragma once

#include <cstdint>

/// Names of the European programme types, by their code.
extern const char* const pty_meaning_europe[32];

/// State of the RDS decoder and the group at the head of its FIFO. Flags are 0 or 1.
struct Si468x_FM_rds_status {
  std::uint8_t tp_changed = 0;
  std::uint8_t pi_changed = 0;
  std::uint8_t sync_changed = 0;
  std::uint8_t fifo_full = 0;
  std::uint8_t tp_pty_valid = 0;
  std::uint8_t pi_valid = 0;
  std::uint8_t synchronized = 0;
  std::uint8_t fifo_overrun = 0;
  std::uint8_t tp = 0;         ///< traffic programme
  std::uint8_t pty = 0;        ///< programme type, 0 to 31
  std::uint16_t pi = 0;        ///< programme identification
  std::uint8_t fifo_used = 0;  ///< groups left in the FIFO
  std::uint8_t ble_a = 0;      ///< bit errors in each block, 0 to 3
  std::uint8_t ble_b = 0;
  std::uint8_t ble_c = 0;
  std::uint8_t ble_d = 0;
  std::uint16_t block_a = 0;
  std::uint16_t block_b = 0;
  std::uint16_t block_c = 0;
  std::uint16_t block_d = 0;

  /// Ask the chip, which hands out a group from its FIFO, and fill every field. 0, or the
  /// protocol's negative result with code 62; the record then keeps its contents.
  std::int16_t get_status();
  /// Print the record as a text table, with an empty line after it.
  std::int16_t print_data();
};

/// Switch the RDS decoder on, which a boot leaves off. 0, or the result of the property that could
/// not be written, with the codes of Si468x_set_property.
std::int16_t Si468x_FM_enable_rds();

/// Command `rds_status`: switch the RDS decoder on and print signal quality and RDS state, zeros
/// for what could not be read. 0, or the result of the property that could not be written; nothing
/// is printed then.
std::int16_t get_rds_status();
