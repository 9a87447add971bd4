// SPDX-License-Identifier: GPL-3.0-or-later
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "kestrelctl/commands.h"
#include "kestrelctl/text.h"

namespace kestrelctl {

void write_output(const std::string& name, std::string_view text, const std::vector<Scan>& scans) {
  if (name == "-") {
    std::cout << text;
    return;
  }
  for (const auto& scan : scans) {
    std::error_code error;
    if (std::filesystem::equivalent(name, scan.path, error)) {
      throw std::runtime_error(make_harmless(name) + ": is one of the scans, and is left alone");
    }
  }
  errno = 0;
  std::ofstream file(name, std::ios::binary | std::ios::trunc);
  file << text << std::flush;
  if (!file) throw std::runtime_error(make_harmless(name) + ": " + std::strerror(errno));
}

}  // namespace kestrelctl
