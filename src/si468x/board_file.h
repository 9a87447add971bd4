// SPDX-License-Identifier: GPL-3.0-or-later
//
// The one door to the files of the board: the SPI device node and the device tree. The simulated
// board puts its own door in this place, so that the same driver sees its files there.
#pragma once

#include <cstdio>

/// Open the board's file `path` (absolute) as a stdio stream with the fopen mode `mode`.
/// The stream is the caller's to close; null when the file cannot be opened.
std::FILE* open_board_file(const char* path, const char* mode);
