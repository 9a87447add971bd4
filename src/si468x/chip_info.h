// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the chip says about itself: its status, its part, the firmware image that runs and its
// revision. The run looks at the power-up state before anything else; `chip_info` prints it all.
#pragma once

#include <cstdint>

struct Si468x_chip_info {
  std::uint8_t chip_mask_revision = 0;
  std::uint8_t rom_id = 0;
  std::uint8_t firmware_image = 0;  ///< 0 boot loader, 1 FM-HD, 2 DAB, ...
  std::uint16_t part_number = 0;    ///< the digits after "Si"
  std::uint8_t revision_major = 0;
  std::uint8_t revision_minor = 0;
  std::uint8_t revision_build = 0;
  std::uint8_t no_svn_info = 0;  ///< 1: build_location and svn_id are not known
  std::uint8_t mixed_revisions = 0;
  std::uint8_t local_modifications = 0;
  std::uint8_t build_location = 0;
  std::uint32_t svn_id = 0;
  std::uint8_t clear_to_send = 0;
  std::uint8_t command_error = 0;
  std::uint8_t dig_radio_link_change_int = 0;
  std::uint8_t data_component_int = 0;
  std::uint8_t seek_tune_complete = 0;
  std::uint8_t dig_radio_event_change_int = 0;
  std::uint8_t powerup_state = 0;  ///< 0 reset, 1, 2 boot loader, 3 firmware running
  std::uint8_t dsp_frame_overrun = 0;
  std::uint8_t read_reply_data_dropped = 0;
  std::uint8_t command_write_data_dropped = 0;
  std::uint8_t arbiter_error = 0;
  std::uint8_t non_recoverable_error = 0;

  // Each reads a part of the record and leaves the rest, and on failure all, as it was. 0, or the
  // protocol's negative result with the code given.

  /// The status fields, by one bare status read: no command, no wait for CTS, no judgement.
  /// Code 11.
  std::int16_t get_status();
  /// Mask revision, ROM id and part number. Code 21.
  std::int16_t get_part_info();
  /// The firmware image. Code 12.
  std::int16_t get_sys_state();
  /// Revision and build flags; build location and SVN id only if the chip has them. Code 13.
  std::int16_t get_func_info();

  /// Print the record as a text table.
  std::int16_t print_data();
};

/// Command `chip_info`: read everything and print it, zeros for what could not be read. Always 0.
int print_chip_info();
