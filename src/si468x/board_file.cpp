// SPDX-License-Identifier: GPL-3.0-or-later
//
// The real board's files are the files of this system. This function is alone in its object file:
// a program that brings its own, as the simulated board does, never pulls this one out of the
// library.
#include "si468x/board_file.h"

std::FILE* open_board_file(const char* path, const char* mode) { return std::fopen(path, mode); }
