// SPDX-License-Identifier: GPL-3.0-or-later
//
// What can be wrong with a file: too much, or little enough to be mended.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace kestrelctl {

/// A file that is beyond repair; the message says where and why.
class Unreadable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A string that had to be mended: in which line it begins, whose it is, and what was in it.
struct Repair {
  std::size_t line;
  std::string member;
  std::string reason;
};

}  // namespace kestrelctl
