// SPDX-License-Identifier: GPL-3.0-or-later
//
// The user's own frequency list: a text file with one frequency in kHz per line, sent to the chip.
#pragma once

#include <cstdint>

/// Command `frequency_list`: read the file `path` and make its frequencies the chip's list until
/// its next boot. Says on standard output what it did or why not. Reading ends at a line of 20 or
/// more characters; a frequency outside 10000 to 1000000 kHz, or a list of more than 48, refuses
/// the whole file. 0 when the list was sent, else -1.
std::int16_t load_freq_list_from_file(char* path);
