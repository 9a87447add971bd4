// SPDX-License-Identifier: GPL-3.0-or-later
//
// The checks and their table. Each reads what the kernel or the firmware says about one thing that
// kestrel needs, and writes at least one finding; the pins have a file of their own.
#include "kestrelctl/doctor.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <sstream>

#include "kestrelctl/doctor_checks.h"

namespace kestrelctl {
namespace doctor {
namespace {

std::string config_file(const System& system) { return system.config.folder + "/config.txt"; }

/// What a setting's section adds to what is said of it.
std::string below(const std::string& section) { return section.empty() ? "" : " below " + section; }

void check_board(const System& system, Report& report) {
  const std::string use_one = "run kestrel on a Raspberry Pi 1 to 4, 400 or Zero";
  const auto name = shown(system.model_name.text);
  if (system.model_name.access == Access::absent) {
    report.fail("not a Raspberry Pi, there is no /proc/device-tree/model", use_one);
  } else if (system.model_name.access == Access::unreadable) {
    report.warn("/proc/device-tree/model cannot be read", "run with sudo to see");
  } else if (system.model != nullptr) {
    const auto note = system.model->note;
    report.add(system.model->severity, note.empty() ? name : name + ": " + std::string(note));
  } else if (name.starts_with("Raspberry Pi ")) {
    report.warn(name + " is a model that kestrel does not know and takes for a 3", use_one);
  } else {
    report.fail("not a Raspberry Pi but \"" + name + "\"", use_one);
  }
}

// Two words of it tell where the registers are, on a model 4 each one word later than on all
// others.
void check_registers(const System& system, Report& report) {
  const bool is_pi_4 = shown(system.model_name.text).starts_with("Raspberry Pi 4");
  const auto ranges = system.tree.read("proc/device-tree/soc/ranges");
  if (ranges.access == Access::present && ranges.text.size() >= (is_pi_4 ? 16 : 12)) {
    report.ok("/proc/device-tree/soc/ranges tells where they are");
    return;
  }
  report.warn(std::string("/proc/device-tree/soc/ranges is ") +
                  (ranges.access == Access::absent       ? "missing"
                   : ranges.access == Access::unreadable ? "unreadable"
                                                         : "too short") +
                  ", kestrel may look for them in a wrong place",
              "start a kernel with the device tree of this board");
}

void check_spi(const System& system, Report& report) {
  const auto& config = system.config;
  const auto file = config_file(system);
  const std::string missing = "there is no /dev/spidev0.0";
  if (!system.is_running && config.spi.value_or(false)) {
    report.ok("dtparam=spi=on stands" + below(config.spi_section) + " in " + file);
  } else if (!system.is_running) {
    report.fail("it is off", "put the line dtparam=spi=on below [all] into " + file);
  } else if (system.tree.has_file("dev/spidev0.0")) {
    report.ok("/dev/spidev0.0 is there");
  } else if (config.access == Access::unreadable) {
    report.fail(missing + ", and " + file + " cannot be read",
                "dtparam=spi=on must stand in it; put it there and reboot");
  } else if (!config.spi.value_or(false)) {
    report.fail(missing, "put the line dtparam=spi=on below [all] into " + file + " and reboot");
  } else if (!config.spi_section.empty()) {
    report.fail(missing + ", and dtparam=spi=on stands" + below(config.spi_section) + " in " + file,
                "reboot; if that was done, put the line below [all] and reboot");
  } else {
    report.fail(missing + " though dtparam=spi=on stands in " + file,
                "reboot; if that was done, remove the dtoverlay of another device on SPI0");
  }
}

void check_memory(const System& system, Report& report) {
  if (system.tree.has_file("dev/mem")) {
    report.ok("is there");
  } else {
    report.fail("is missing, this is a container or no Raspberry Pi",
                "run on the machine itself, or hand in /dev/mem and the capability SYS_RAWIO");
  }
}

/// The word in brackets of "none [integrity] confidentiality".
std::string_view chosen(std::string_view text) {
  const auto open = text.find('[');
  if (open == std::string_view::npos) return {};
  text.remove_prefix(open + 1);
  return text.substr(0, text.find(']'));
}

/// The configuration of the running kernel. Its name is part of a path, so that only what can be
/// the name of a release is taken.
Reading read_kernel_config(const System& system, std::string_view release) {
  constexpr std::string_view allowed =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.+-_~";
  if (release.empty() || release.find_first_not_of(allowed) != std::string_view::npos) return {};
  return system.tree.read("boot/config-" + std::string(release));
}

void check_kernel(const System& system, Report& report) {
  const auto lockdown = system.tree.read("sys/kernel/security/lockdown").text;
  const auto policy = chosen(lockdown);
  if (policy == "integrity" || policy == "confidentiality") {
    report.fail("it is locked down (" + std::string(policy) + ") and keeps /dev/mem to itself",
                "boot without lockdown, usually by switching secure boot off; "
                "no parameter makes an exception");
    return;
  }
  const auto cure = "put iomem=relaxed at the end of the one line in " + system.config.folder +
                    "/cmdline.txt and reboot";
  const std::string parameters =
      system.is_running ? "proc/cmdline" : system.config.folder.substr(1) + "/cmdline.txt";
  if (has_word(trim(system.tree.read(parameters).text), "iomem=relaxed")) {
    report.ok("iomem=relaxed gives out all registers");
    return;
  }
  if (!system.is_running) {
    report.ok(
        "its policy is not known; should kestrel say \"mmap failed: Operation not "
        "permitted\", " +
        cure);
    return;
  }
  const auto version = system.tree.read("proc/sys/kernel/osrelease");
  const auto release = trim(version.text);
  const auto config = read_kernel_config(system, release);
  const auto lines = split(config.text, '\n');
  if (config.access != Access::present) {
    report.ok(shown(release) +
              ", whose policy is not known; should kestrel say \"mmap failed: Operation not "
              "permitted\", " +
              cure);
  } else if (std::find(lines.begin(), lines.end(), "CONFIG_IO_STRICT_DEVMEM=y") != lines.end()) {
    report.fail(shown(release) + " has CONFIG_IO_STRICT_DEVMEM and refuses the registers of SPI0",
                cure);
  } else {
    report.ok(shown(release) + " gives out the registers of SPI0");
  }
}

/// Whether a driver other than the one that kestrel can live with has the device.
bool report_driver(const System& system, const std::string& device, const std::string& controller,
                   Report& report) {
  const auto driver = system.tree.link_name("sys/bus/spi/devices/" + device + "/driver");
  if (!driver || *driver == "spidev") return false;
  report.fail("the driver " + shown(*driver) + " has " + device + " (" + controller + ")",
              "remove its dtoverlay from " + config_file(system) + " and reboot");
  return true;
}

void check_spi0_drivers(const System& system, Report& report) {
  const auto driver = system.tree.link_name("sys/class/spi_master/spi0/device/driver");
  const auto controller =
      driver ? "the controller's driver is " + shown(*driver) : "no driver has the controller";
  bool is_free = true;
  for (const auto* const device : {"spi0.0", "spi0.1"}) {
    if (report_driver(system, device, controller, report)) is_free = false;
  }
  if (is_free) report.ok("no other driver uses it; " + controller);
}

/// The core clock in Hz, as the kernel reads it now; 0 if it cannot be read.
std::uint64_t measure_core_hz(const System_tree& tree) {
  constexpr std::uint64_t most_hz = 10'000'000'000;
  for (const std::string clock : {"vpu", "fw-clk-core", "core"}) {
    const auto hz = leading_number(tree.read("sys/kernel/debug/clk/" + clock + "/clk_rate").text);
    if (hz && *hz > 0 && *hz <= most_hz) return *hz;
  }
  return 0;
}

constexpr double most_spi_mhz = 10;
constexpr double divider = 32;

struct Core_clock {
  double mhz;
  std::string source;
};

// A clock that is slow enough at the moment proves little, since it follows the load: only
// core_freq holds it. One that is too fast now is too fast whatever config.txt says.
std::optional<Core_clock> find_core_clock(const System& system) {
  constexpr double hz_per_mhz = 1e6;
  const Core_clock now{static_cast<double>(measure_core_hz(system.tree)) / hz_per_mhz, "now"};
  if (now.mhz / divider > most_spi_mhz) return now;
  const auto& config = system.config;
  if (config.core_mhz) {
    return Core_clock{static_cast<double>(*config.core_mhz),
                      "by core_freq" + below(config.core_section) + " in " + config_file(system)};
  }
  const auto* const model = system.model;
  if (model != nullptr && model->load_core_mhz != 0) {
    return Core_clock{static_cast<double>(model->load_core_mhz),
                      "under load, " + std::to_string(model->idle_core_mhz) +
                          " MHz when idle, on a " + std::string(model->name)};
  }
  if (now.mhz > 0) return now;
  return std::nullopt;
}

void check_clock(const System& system, Report& report) {
  const auto cure =
      "put core_freq=250 and core_freq_min=250 into " + config_file(system) + " and reboot";
  const auto core = find_core_clock(system);
  if (!core) {
    report.warn("the core clock, and with it SPI0's, is not known", cure);
    return;
  }
  const auto spi_mhz = core->mhz / divider;
  std::ostringstream fact;
  fact << "SPI0 has " << spi_mhz << " MHz (core clock " << core->mhz << " MHz " << core->source
       << ")";
  if (spi_mhz > most_spi_mhz) {
    report.warn(fact.str() + ", above the receiver's 10 MHz", cure);
  } else {
    report.ok(fact.str());
  }
}

void check_root(const System& system, Report& report) {
  // Who examines a mounted card does not run kestrel there.
  if (!system.tree.is_this_machine()) return;
  if (::geteuid() == 0) {
    report.ok("you are root, as kestrel must be");
  } else {
    report.warn("kestrel needs root", "sudo kestrel");
  }
}

void check_processes(const System& system, Report& report) {
  constexpr std::string_view digits = "0123456789";
  bool is_alone = true;
  for (const auto& process : system.tree.list("proc").names) {
    if (process.find_first_not_of(digits) != std::string::npos) continue;
    if (trim(system.tree.read("proc/" + process + "/comm").text) != "kestrel") continue;
    is_alone = false;
    report.warn("kestrel runs as process " + process,
                "wait for its end or end it, two of them mix their bytes on SPI0");
  }
  if (is_alone) report.ok("no kestrel runs at the moment");
}

void check_program(const System& system, Report& report) {
  for (const std::string path : {"usr/bin/kestrel", "usr/local/bin/kestrel"}) {
    if (!system.tree.has_file(path)) continue;
    report.ok("/" + path);
    return;
  }
  report.warn("not installed in /usr/bin or /usr/local/bin",
              "install the package, or run cmake --install on a build");
}

struct Check {
  const char* subject;
  void (*run)(const System& system, Report& report);
  bool needs_running = true;  ///< what it looks at is there in a system that runs alone
};
constexpr auto checks = std::to_array<Check>({
    {"board", check_board},
    {"registers", check_registers},
    {"SPI", check_spi, false},
    {"/dev/mem", check_memory},
    {"kernel", check_kernel, false},
    {"SPI0", check_spi0_drivers},
    {"pins", check_pins},
    {"clock", check_clock, false},
    {"root", check_root},
    {"processes", check_processes},
    {"program", check_program, false},
});

const char* severity_word(Severity severity) {
  switch (severity) {
    case Severity::ok:
      return "ok       ";
    case Severity::warning:
      return "warning  ";
    case Severity::failure:
      return "failure  ";
  }
  return "";
}

std::string counted(std::ptrdiff_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

}  // namespace
}  // namespace doctor

std::vector<Finding> examine(const std::filesystem::path& root) {
  doctor::System system{doctor::System_tree(root), false, {}, nullptr, {}};
  system.is_running = system.tree.is_this_machine() || !system.tree.list("proc").names.empty();
  system.model_name = system.tree.read("proc/device-tree/model");
  system.model = doctor::find_model(doctor::shown(system.model_name.text));
  system.config = doctor::read_boot_config(system.tree, system.model);
  std::vector<Finding> findings;
  if (!system.is_running) {
    doctor::Report(findings, "system")
        .ok("it does not run: its board, devices and pins cannot be told");
  }
  for (const auto& check : doctor::checks) {
    if (check.needs_running && !system.is_running) continue;
    doctor::Report report(findings, check.subject);
    check.run(system, report);
  }
  return findings;
}

int run_doctor(const std::filesystem::path& root, std::ostream& out) {
  const auto findings = examine(root);
  const auto count = [&findings](Severity severity) {
    return std::count_if(findings.begin(), findings.end(),
                         [severity](const Finding& f) { return f.severity == severity; });
  };
  for (const auto& finding : findings) {
    out << doctor::severity_word(finding.severity) << finding.subject << ": " << finding.text
        << '\n';
  }
  const auto failures = count(Severity::failure);
  const auto warnings = count(Severity::warning);
  if (failures > 0) {
    out << "kestrel will not work: " << doctor::counted(failures, "failure") << ", "
        << doctor::counted(warnings, "warning") << ".\n";
    return 2;
  }
  if (warnings > 0) {
    out << "kestrel should work; " << doctor::counted(warnings, "warning") << ".\n";
    return 1;
  }
  out << "All is well.\n";
  return 0;
}

}  // namespace kestrelctl
