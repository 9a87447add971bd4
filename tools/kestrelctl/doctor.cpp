// SPDX-License-Identifier: GPL-3.0-or-later
//
// The checks and their table. What cannot be found out is reported as unknown.
#include "kestrelctl/doctor.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "kestrelctl/doctor_board.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace doctor {
namespace {

namespace fs = std::filesystem;
using enum Severity;

/// The examined system, and what more than one check wants to know of it.
struct System {
  const fs::path& root;
  const Ask_receiver& ask_receiver;
  std::optional<std::string> model_name;  ///< printable; nothing if it cannot be read
  const Model* model = nullptr;           ///< null: not known
  Boot_config config;
  bool has_failure = false;  ///< of a check before

  [[nodiscard]] bool has_device(std::string_view path) const {
    std::error_code error;
    return fs::exists(root / path, error) && !fs::is_directory(root / path, error);
  }
};

struct Finding {
  Severity severity;
  std::string fact;
  std::string cure = {};
};

Finding check_board(const System& system) {
  const std::string use_one = "use a Raspberry Pi 1 to 4, 400 or Zero";
  const auto& name = system.model_name;
  if (!name)
    return {failure, "not known to be a Raspberry Pi, /proc/device-tree/model cannot be read",
            use_one};
  if (const auto* const model = system.model; model != nullptr) {
    return {model->severity, *name + std::string(model->note), model->note.empty() ? "" : use_one};
  }
  if (!name->starts_with("Raspberry Pi ")) {
    return {failure, fmt::format("not a Raspberry Pi but \"{}\"", *name), use_one};
  }
  return {warning, *name + " is not known and treated as a 3", use_one};
}

Finding check_spi(const System& system) {
  const auto& [file, is_readable, spi, core_mhz] = system.config;
  const std::string missing = "there is no /dev/spidev0.0";
  const auto put_line = fmt::format("put dtparam=spi=on below [all] in {} and reboot", file);
  if (system.has_device("dev/spidev0.0")) return {ok, "/dev/spidev0.0 is there"};
  if (!is_readable) return {failure, missing + ", and " + file + " cannot be read", put_line};
  if (!spi || spi->value == 0) return {failure, missing, put_line};
  return {
      failure, missing + " although dtparam=spi=on is " + spi->place,
      "reboot; if that was done, put the line below [all] and remove the dtoverlay of any other "
      "device on SPI0"};
}

Finding check_memory(const System& system) {
  if (!system.has_device("dev/mem")) {
    return {failure, "is missing, this is a container or not a Raspberry Pi",
            "run on the machine itself, or pass in /dev/mem and the capability SYS_RAWIO"};
  }
  const auto lockdown = read_file(system.root / "sys/kernel/security/lockdown").value_or("[none]");
  if (lockdown.find("[none]") == std::string::npos) {
    return {failure, "the kernel is locked down",
            "boot without lockdown, usually by switching secure boot off"};
  }
  const auto parameters = read_file(system.root / "proc/cmdline").value_or("");
  if (has_word(trim(parameters), "iomem=relaxed")) {
    return {ok, "is there, and iomem=relaxed opens all registers"};
  }
  return {ok, "is there; only trying tells whether the kernel opens the registers of SPI0"};
}

/// The core clock as the kernel reads it now; 0 if it cannot be read.
double measure_core_mhz(const System& system) {
  for (const auto* const clock : {"vpu", "fw-clk-core", "core"}) {
    const auto path = system.root / "sys/kernel/debug/clk" / clock / "clk_rate";
    std::uint64_t hz = 0;
    std::istringstream(read_file(path).value_or("")) >> hz;
    if (hz > 0 && hz <= 10'000'000'000) return static_cast<double>(hz) / 1e6;
  }
  return 0;
}

Finding check_clock(const System& system) {
  constexpr double divider = 32;
  constexpr double most_spi_mhz = 10;
  const auto& [file, is_readable, spi, set_mhz] = system.config;
  double core_mhz = measure_core_mhz(system);
  std::string source = "now";
  // The clock follows the load unless core_freq holds it: slow enough now proves little, but too
  // fast now is too fast.
  if (core_mhz / divider <= most_spi_mhz) {
    if (set_mhz) {
      core_mhz = set_mhz->value;
      source = "by core_freq " + set_mhz->place;
    } else if (system.model != nullptr && system.model->load_core_mhz != 0) {
      core_mhz = system.model->load_core_mhz;
      source = fmt::format("under load, {} MHz when idle", system.model->idle_core_mhz);
    }
  }
  const auto cure = fmt::format("put core_freq=250 and core_freq_min=250 in {} and reboot", file);
  if (core_mhz == 0) return {warning, "the core clock, and with it SPI0's, is unknown", cure};
  const auto fact = fmt::format("SPI0 has {:g} MHz (core clock {:g} MHz {})", core_mhz / divider,
                                core_mhz, source);
  if (core_mhz / divider <= most_spi_mhz) return {ok, fact};
  return {warning, fact + ", above the receiver's 10 MHz", cure};
}

Finding check_root(const System& /*system*/) {
  if (::geteuid() == 0) return {ok, "you are root"};
  return {warning, "you are not root, as the radio needs", "use sudo"};
}

Finding check_receiver(const System& system) {
  if (system.has_failure) return {warning, "not asked after a failure", "cure that first"};
  if (::geteuid() != 0) return {warning, "only root can ask it", "use sudo"};
  try {
    return {ok, make_harmless(system.ask_receiver())};
  } catch (const std::runtime_error& error) {
    return {failure, make_harmless(error.what())};
  }
}

/// The file that a shell starts under that name; empty if there is none.
fs::path find_in_path(const System& system, std::string_view name) {
  constexpr auto executable =
      fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec;
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    auto file = fs::path(folder) / name;
    std::error_code error;
    const auto status = fs::status(system.root / file.relative_path(), error);
    if (file.is_absolute() && fs::is_regular_file(status) &&
        (status.permissions() & executable) != fs::perms::none) {
      return file;
    }
  }
  return {};
}

Finding check_program(const System& system, std::string_view name) {
  constexpr std::size_t most_program_bytes = 32U << 20U;
  // The end of a stand-in's first line. Made here, or kestrelctl would find its own copy.
  const auto stand_in = fmt::format("{:>11}\n", 1'000'001);
  const auto file = find_in_path(system, name);
  if (file.empty()) return {warning, "not in PATH", "install the package"};
  const auto shown = make_harmless(file.native());
  const auto program = read_file(system.root / file.relative_path(), most_program_bytes);
  if (!program) return {warning, shown + " cannot be read, its images are unknown", "use sudo"};
  if (!program->starts_with("\177ELF")) {
    return {failure, shown + (program->empty() ? " is empty" : " is not a program"),
            "remove it and install the package"};
  }
  if (program->find(stand_in) == std::string::npos) return {ok, shown};
  return {failure, shown + " has stand-ins for images, which no real receiver boots",
          "put the receiver's images into firmware/, build and install"};
}

constexpr std::pair<const char*, Finding (*)(const System&)> checks[]{
    {"board", check_board},
    {"SPI", check_spi},
    {"/dev/mem", check_memory},
    {"clock", check_clock},
    {"root", check_root},
    {"receiver", check_receiver},
    {"kestrel", [](const System& system) { return check_program(system, "kestrel"); }},
    {"kestrelctl", [](const System& system) { return check_program(system, "kestrelctl"); }},
};

}  // namespace
}  // namespace doctor

int run_doctor(const std::filesystem::path& root, const Ask_receiver& ask_receiver,
               std::ostream& out) {
  auto model_name = doctor::read_file(root / "proc/device-tree/model", 80);
  if (model_name) model_name = make_harmless(doctor::trim(*model_name));
  const auto* const model = doctor::find_model(model_name.value_or(""));
  doctor::System system{root, ask_receiver, model_name, model,
                        doctor::read_boot_config(root, model)};
  auto worst = doctor::ok;
  for (const auto& [subject, run] : doctor::checks) {
    const auto [severity, fact, cure] = run(system);
    constexpr std::array words{"ok", "warning", "failure"};
    out << fmt::format("{:<9}{}: {}{}{}\n", words.at(static_cast<std::size_t>(severity)), subject,
                       fact, cure.empty() ? "" : ": ", cure);
    worst = std::max(worst, severity);
    system.has_failure = worst == doctor::failure;
  }
  constexpr std::array sums{"All is well.\n", "The radio should work.\n",
                            "The radio will not work.\n"};
  out << sums.at(static_cast<std::size_t>(worst));
  return static_cast<int>(worst);
}

}  // namespace kestrelctl
