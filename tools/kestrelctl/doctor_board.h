// SPDX-License-Identifier: GPL-3.0-or-later
//
// What differs from one Raspberry Pi to the next, and what the firmware's config.txt asks of it.
// The checks judge by both; which sections of config.txt count depends on the model.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kestrelctl/doctor.h"
#include "kestrelctl/doctor_tree.h"

namespace kestrelctl::doctor {

/// One row for each group of models. The core clocks are the firmware's defaults, 0 where they are
/// not known; `sections` are the filters of config.txt that such a board passes, one blank between
/// them.
struct Model {
  std::string_view name;  ///< how the name in the device tree begins
  Severity severity;
  std::string_view note;  ///< what to know about it, and what to change
  std::uint64_t idle_core_mhz;
  std::uint64_t load_core_mhz;
  std::string_view sections;
};

/// @return the row that the name in the device tree belongs to, or null.
const Model* find_model(std::string_view name);

/// The settings of config.txt that count on this board. Where it cannot be said whether a section
/// counts (of a display or a pin, or with a board that is not known), its settings are taken and
/// `..._section` names it; otherwise that is empty.
struct Boot_config {
  Access access = Access::absent;
  std::string folder;  ///< where the examined system has it, "/boot/firmware" or "/boot"
  std::optional<bool> spi;
  std::string spi_section;
  std::optional<std::uint64_t> core_mhz;
  std::string core_section;
};

/// Read config.txt from where the examined system has it. `model` may be null.
Boot_config read_boot_config(const System_tree& tree, const Model* model);

}  // namespace kestrelctl::doctor
