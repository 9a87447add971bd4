// SPDX-License-Identifier: GPL-3.0-or-later
//
// A stdio stream that closes itself: a board file, or a firmware image.
#pragma once

#include <cstdio>
#include <memory>

/// A stream that was only read, closed with its owner: closing can lose nothing.
struct Close_file {
  void operator()(std::FILE* file) const { (void)std::fclose(file); }
};
using Input_file = std::unique_ptr<std::FILE, Close_file>;
