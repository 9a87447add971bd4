// SPDX-License-Identifier: GPL-3.0-or-later
//
// The command line: the options record, filled once by argp, and what argp needs for it. Nothing is
// judged here; the commands judge the values that they are given.
#pragma once

#include <argp.h>

#include <cstdint>

/// The name of the list file that was not given.
inline char no_list_file[] = "-";

/// What one run was asked for. Flags are 0 or 1. A value of 0 in `frequency`, `fm_frequency`,
/// `service` or `component` means that it was not given.
struct arguments {
  std::uint32_t volume = 30;
  std::int32_t volume_given = 0;
  std::int32_t boot = 0;
  char firmware = 'D';  ///< 'D' DAB, 'F' FM-HD
  std::int32_t shutdown = 0;
  std::int32_t i2s_given = 0;
  std::int32_t i2s_out = 0;  ///< low 8 bits: 0 analogue output, else I2S
  std::int32_t chip_info = 0;
  std::int32_t digrad_status = 0;
  std::int32_t event_status = 0;
  std::int32_t datetime = 0;
  std::int32_t play = 0;
  std::int32_t next = 0;
  std::int32_t previous = 0;
  std::uint32_t fm_frequency = 0;  ///< kHz
  std::uint32_t service = 0;
  std::uint32_t component = 0;
  std::uint8_t frequency = 0;  ///< index into the chip's DAB frequency list
  std::int32_t rds_status = 0;
  std::int32_t format_json = 0;
  std::int32_t digital_service_list = 0;
  std::int32_t full_scan = 0;
  std::int32_t frequency_list = 0;
  char* frequency_list_file = no_list_file;  ///< the argument itself, argv's
  std::int32_t station_text = 0;
};

/// argp's parser: store the option `key` and its argument in the `arguments` that the state's input
/// points to. Numbers are taken as strtol takes them, so text gives 0. 0, or ARGP_ERR_UNKNOWN for
/// what argp is to handle itself.
error_t parse_opt(int key, char* arg, argp_state* state);

/// Option table, parser and texts, for argp_parse.
extern const struct argp argp;
