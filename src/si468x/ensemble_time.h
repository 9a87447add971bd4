// SPDX-License-Identifier: GPL-3.0-or-later
//
// Date and time that the tuned ensemble transmits, in UTC. Command `datetime`; the scan keeps the
// time of every ensemble.
#pragma once

#include <cstdint>
#include <sstream>

/// The values are the chip's own: nothing is checked or converted.
struct Si468x_time {
  std::uint16_t year = 0;
  std::uint8_t month = 0;
  std::uint8_t day = 0;
  std::uint8_t hour = 0;
  std::uint8_t minute = 0;
  std::uint8_t second = 0;

  /// Set every field to 0.
  void clean();
  /// Ask the chip and fill every field. 0, or the protocol's negative result with code 35; the
  /// record then keeps its contents.
  std::int16_t get_ensembletime();
  /// Print one line such as 2017-3-5T9:7:0Z, without leading zeros.
  std::int16_t print_data();
  /// Append the member "ensembleTime" and a newline to `out`, without enclosing braces. Always 0.
  int json_print_data(std::stringstream& out);
};

// Front-end commands: each prints the time, zeros when it could not be read, and returns 0.

int print_ensembletime();
int print_ensembletime_json();
