// SPDX-License-Identifier: GPL-3.0-or-later
//
// What differs between the models, as much of config.txt as SPI0 and its clock depend on, and the
// checks in their table. What cannot be found out is reported as unknown.
#include "kestrelctl/doctor.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ostream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "kestrelctl/files.h"
#include "kestrelctl/text.h"

namespace kestrelctl {
namespace {

namespace fs = std::filesystem;

enum Severity { ok, warning, failure };

/// A group of models.
struct Model {
  std::string_view name;  ///< how the name in the device tree begins
  Severity severity;
  unsigned load_core_mhz;     ///< the firmware's default under load; 0 if it is not known
  std::string_view sections;  ///< of config.txt, those for this model
};

// The first row that fits counts: a longer name comes before a shorter one.
constexpr auto models = std::to_array<Model>({
    {"Raspberry Pi 5", failure, 0, "pi5"},
    {"Raspberry Pi 500", failure, 0, "pi5 pi500"},
    {"Raspberry Pi Compute Module 5", failure, 0, "pi5 cm5"},
    {"Raspberry Pi Compute Module 4S", warning, 0, "pi4 cm4s"},
    {"Raspberry Pi Compute Module 4", warning, 0, "pi4 cm4"},
    {"Raspberry Pi Compute Module 3", warning, 0, "pi3 cm3"},
    {"Raspberry Pi Compute Module", warning, 0, "pi1 cm1"},
    {"Raspberry Pi 400", ok, 500, "pi4 pi400"},
    {"Raspberry Pi 4", ok, 500, "pi4"},
    {"Raspberry Pi 3 Model B Plus", ok, 400, "pi3 pi3+"},
    {"Raspberry Pi 3 Model A Plus", ok, 400, "pi3 pi3+"},
    {"Raspberry Pi 3", ok, 400, "pi3"},
    {"Raspberry Pi 2", ok, 250, "pi2"},
    {"Raspberry Pi Zero 2", ok, 400, "pi0 pi02"},
    {"Raspberry Pi Zero W", ok, 400, "pi0 pi0w"},
    {"Raspberry Pi Zero", ok, 400, "pi0"},
    {"Raspberry Pi Model", ok, 250, "pi1"},
});
constexpr std::array model_notes{"", ", on which the radio has not been tried",
                                 ", whose header is on another chip that the driver cannot use"};

/// A setting of config.txt that applies to this board, or may do so.
struct Setting {
  unsigned value;
  std::string place;  ///< "in /boot/config.txt", with the section if it is unsure
};

struct Boot_config {
  std::string file;  ///< its absolute path on the board
  bool is_readable = false;
  std::optional<Setting> spi;       ///< 0 or 1
  std::optional<Setting> core_mhz;  ///< 1 to 9999
};

/// The first `most_bytes` of a regular file; nothing if it is missing or unreadable. Opening a pipe
/// would wait for its writer, and opening a device can have an effect.
std::optional<std::string> read_regular(const fs::path& path, std::size_t most_bytes = 65536) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  return read_file(path, most_bytes);
}

/// `text` without white space and NUL bytes at its ends.
std::string_view trim(std::string_view text) {
  constexpr std::string_view blank(" \t\r\n\v\f\0", 7);
  const auto first = text.find_first_not_of(blank);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blank) - first + 1);
}

/// Whether `word` is one of `words`, which blanks separate.
bool has_word(std::string_view words, std::string_view word) {
  return fmt::format(" {} ", words).find(fmt::format(" {} ", word)) != std::string::npos;
}

/// The row for the name in the device tree, or null.
const Model* find_model(std::string_view name) {
  // By whole words: "Raspberry Pi 5" must not take what begins "Raspberry Pi 500".
  const auto* const model = std::ranges::find_if(models, [name](const Model& row) {
    return fmt::format("{} ", name).starts_with(fmt::format("{} ", row.name));
  });
  return model == models.end() ? nullptr : model;
}

/// config.txt below `root`. `model` may be null.
Boot_config read_boot_config(const fs::path& root, const Model* model) {
  constexpr std::size_t most_line_bytes = 98;  // the firmware reads no more
  Boot_config config;
  // A newer system keeps a file in the old place that only says where the new one is.
  std::error_code error;
  const bool is_old = !fs::exists(root / "boot/firmware/config.txt", error) &&
                      fs::exists(root / "boot/config.txt", error);
  config.file = is_old ? "/boot/config.txt" : "/boot/firmware/config.txt";
  const auto text = read_regular(root / config.file.substr(1));
  config.is_readable = text.has_value();

  const std::regex spi(R"(dtparam=(?:.*,)?\s*spi\s*(?:=\s*(\w*)[^,]*)?(?:,.*)?)");
  const std::regex core_freq(R"(core_freq=\s*([1-9]\d{0,3})(?:\D.*)?)");
  // Sections of different kinds add up until [all]; of those for models the last one counts.
  bool is_for_us = true;
  std::string unsure;
  std::istringstream lines(text.value_or(""));
  for (std::string raw; std::getline(lines, raw);) {
    const std::string line(trim(raw.substr(0, most_line_bytes)));
    const auto section = line.starts_with('[') ? line.substr(1, line.find(']') - 1) : "";
    const bool is_model = section.starts_with("pi") || section.starts_with("cm");
    if (section == "all") {
      is_for_us = true;
      unsure.clear();
    } else if (section == "none") {
      is_for_us = false;
    } else if (model != nullptr && is_model) {
      is_for_us = has_word(model->sections, section);
    } else if (!section.empty()) {
      unsure = fmt::format("below [{}], which may not apply here, ", make_harmless(section));
    }
    if (!is_for_us) continue;
    std::smatch value;
    if (std::regex_match(line, value, spi)) {
      const bool is_on = !value[1].matched || has_word("on true yes y 1 okay", value.str(1));
      config.spi = Setting{is_on ? 1U : 0U, unsure + "in " + config.file};
    } else if (std::regex_match(line, value, core_freq)) {
      const auto mhz = static_cast<unsigned>(std::stoul(value.str(1)));
      config.core_mhz = Setting{mhz, unsure + "in " + config.file};
    }
  }
  return config;
}

/// The examined system, and what more than one check wants to know of it.
struct System {
  const fs::path& root;
  const Ask_receiver& ask_receiver;
  std::optional<std::string> model_name;  ///< printable; nothing if it cannot be read
  const Model* model = nullptr;           ///< null: not known
  Boot_config config;
  Severity worst = ok;  ///< of the checks before

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
    return {model->severity, *name + model_notes.at(model->severity),
            model->severity == ok ? "" : use_one};
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
  const auto lockdown =
      read_regular(system.root / "sys/kernel/security/lockdown").value_or("[none]");
  if (lockdown.find("[none]") == std::string::npos) {
    return {failure, "the kernel is locked down",
            "boot without lockdown, usually by switching secure boot off"};
  }
  return {ok, "is there; only trying tells whether the kernel opens the registers of SPI0"};
}

Finding check_clock(const System& system) {
  constexpr double divider = 32;
  constexpr double most_spi_mhz = 10;
  const auto& [file, is_readable, spi, set_mhz] = system.config;
  // The clock follows the load unless core_freq holds it: what it is now proves little.
  const double core_mhz = set_mhz                   ? set_mhz->value
                          : system.model != nullptr ? system.model->load_core_mhz
                                                    : 0;
  const auto source = set_mhz ? "by core_freq " + set_mhz->place : "under load";
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
  if (system.worst == failure) return {warning, "not asked after a failure", "cure that first"};
  if (::geteuid() != 0) return {warning, "only root can ask it", "use sudo"};
  try {
    return {ok, make_harmless(system.ask_receiver())};
  } catch (const std::runtime_error& error) {
    return {failure, make_harmless(error.what())};
  }
}

/// The file that a shell starts under that name; empty if there is none.
fs::path find_in_path(const System& system, std::string_view name) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    auto file = fs::path(folder) / name;
    const auto here = system.root / file.relative_path();
    std::error_code error;
    if (file.is_absolute() && fs::is_regular_file(here, error) &&
        ::access(here.c_str(), X_OK) == 0) {
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
  const auto program = read_regular(system.root / file.relative_path(), most_program_bytes);
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

int run_doctor(const std::filesystem::path& root, const Ask_receiver& ask_receiver,
               std::ostream& out) {
  auto model_name = read_regular(root / "proc/device-tree/model", 80);
  if (model_name) model_name = make_harmless(trim(*model_name));
  const auto* const model = find_model(model_name.value_or(""));
  System system{root, ask_receiver, model_name, model, read_boot_config(root, model)};
  for (const auto& [subject, run] : checks) {
    const auto [severity, fact, cure] = run(system);
    constexpr std::array words{"ok", "warning", "failure"};
    out << fmt::format("{:<9}{}: {}{}{}\n", words.at(severity), subject, fact,
                       cure.empty() ? "" : ": ", cure);
    system.worst = std::max(system.worst, severity);
  }
  constexpr std::array sums{"All is well.\n", "The radio should work.\n",
                            "The radio will not work.\n"};
  out << sums.at(system.worst);
  return system.worst;
}

}  // namespace kestrelctl
