// SPDX-License-Identifier: GPL-3.0-or-later
//
// What a check of the doctor is given and where it puts its findings. The table of the checks is in
// doctor.cpp; those that have a file of their own are declared here.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kestrelctl/doctor.h"
#include "kestrelctl/doctor_board.h"
#include "kestrelctl/doctor_tree.h"

namespace kestrelctl::doctor {

/// The examined system, and what more than one check wants to know of it.
struct System {
  System_tree tree;
  bool is_running = false;  ///< false: the card of another machine, where proc and sys are empty
  Reading model_name;
  const Model* model = nullptr;  ///< null: not known
  Boot_config config;
};

/// Takes the findings of one check. A warning and a failure come with the cure, what to change.
class Report {
 public:
  Report(std::vector<Finding>& findings, std::string subject)
      : findings_(findings), subject_(std::move(subject)) {}

  void ok(const std::string& fact) { add(Severity::ok, fact); }
  void warn(const std::string& fact, const std::string& cure) {
    add(Severity::warning, fact + ": " + cure);
  }
  void fail(const std::string& fact, const std::string& cure) {
    add(Severity::failure, fact + ": " + cure);
  }
  void add(Severity severity, std::string text) {
    findings_.push_back({severity, subject_, std::move(text)});
  }

 private:
  std::vector<Finding>& findings_;
  std::string subject_;
};

/// Who has the pins of SPI0 and of the reset line: doctor_pins.cpp.
void check_pins(const System& system, Report& report);

}  // namespace kestrelctl::doctor
