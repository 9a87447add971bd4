// SPDX-License-Identifier: GPL-3.0-or-later
//
// The table of the models, and as much of the firmware's config.txt as SPI0 and its clock depend
// on.
#include "kestrelctl/doctor_board.h"

#include <array>
#include <cctype>

namespace kestrelctl::doctor {
namespace {

constexpr std::string_view on_rp1 =
    "its header is on another chip, RP1, which kestrel cannot drive: "
    "use a Raspberry Pi 1 to 4, 400 or Zero";
constexpr std::string_view untried =
    "kestrel was not tried on Compute Modules: use a Raspberry Pi 1 to 4, 400 or Zero if it fails";
constexpr std::string_view version_29 =
    "kestrel reports an unsupported hardware version 29, which can be passed over";

// The first row that fits counts: the longer name stands above the shorter one.
constexpr auto models = std::to_array<Model>({
    {"Raspberry Pi 5", Severity::failure, on_rp1, 0, 0, "pi5"},
    {"Raspberry Pi 500", Severity::failure, on_rp1, 0, 0, "pi5 pi500"},
    {"Raspberry Pi Compute Module 5", Severity::failure, on_rp1, 0, 0, "pi5 cm5"},
    {"Raspberry Pi Compute Module 4S", Severity::warning, untried, 0, 0, "pi4 cm4s"},
    {"Raspberry Pi Compute Module 4", Severity::warning, untried, 0, 0, "pi4 cm4"},
    {"Raspberry Pi Compute Module 3", Severity::warning, untried, 0, 0, "pi3 cm3"},
    {"Raspberry Pi Compute Module", Severity::warning, untried, 0, 0, "pi1 cm1"},
    {"Raspberry Pi 400", Severity::ok, "", 200, 500, "pi4 pi400"},
    {"Raspberry Pi 4", Severity::ok, "", 200, 500, "pi4"},
    {"Raspberry Pi 3 Model B Plus", Severity::ok, "", 250, 400, "pi3 pi3+"},
    {"Raspberry Pi 3 Model A Plus", Severity::ok, "", 250, 400, "pi3 pi3+"},
    {"Raspberry Pi 3", Severity::ok, "", 250, 400, "pi3"},
    {"Raspberry Pi 2", Severity::ok, "", 250, 250, "pi2"},
    {"Raspberry Pi Zero 2", Severity::ok, "", 250, 400, "pi0 pi02"},
    {"Raspberry Pi Zero W", Severity::ok, "", 250, 400, "pi0 pi0w"},
    {"Raspberry Pi Zero", Severity::ok, "", 250, 400, "pi0"},
    {"Raspberry Pi Model", Severity::ok, version_29, 250, 250, "pi1"},
});

// The firmware reads no more of a line.
constexpr std::size_t most_line_bytes = 98;

constexpr std::uint64_t most_core_mhz = 10000;

enum class Counts { yes, no, unsure };

Counts section_counts(std::string_view section, const Model* model) {
  if (section == "all") return Counts::yes;
  if (section == "none") return Counts::no;
  if (model == nullptr || !(section.starts_with("pi") || section.starts_with("cm"))) {
    return Counts::unsure;
  }
  return has_word(model->sections, section) ? Counts::yes : Counts::no;
}

/// The value of the parameter `spi` in "spi=on,i2c=off"; nothing if it is not among them. Without a
/// value a parameter is switched on.
std::optional<bool> spi_parameter(std::string_view parameters) {
  std::optional<bool> spi;
  for (const auto parameter : split(parameters, ',')) {
    const auto equals = parameter.find('=');
    if (trim(parameter.substr(0, equals)) != "spi") continue;
    if (equals == std::string_view::npos) {
      spi = true;
      continue;
    }
    const auto value = trim(parameter.substr(equals + 1));
    spi = has_word("on true yes y 1 okay", value.substr(0, value.find_first_of(" \t")));
  }
  return spi;
}

void take_setting(Boot_config& config, std::string_view key, std::string_view value,
                  const std::string& section) {
  if (key == "dtparam") {
    if (const auto spi = spi_parameter(value)) {
      config.spi = spi;
      config.spi_section = section;
    }
  }
  if (key == "core_freq") {
    const auto mhz = leading_number(trim(value));
    if (!mhz || *mhz == 0 || *mhz > most_core_mhz) return;
    config.core_mhz = mhz;
    config.core_section = section;
  }
}

}  // namespace

const Model* find_model(std::string_view name) {
  for (const auto& model : models) {
    if (!name.starts_with(model.name)) continue;
    const auto rest = name.substr(model.name.size());
    // "Raspberry Pi 5" must not take what begins "Raspberry Pi 50".
    if (rest.empty() || std::isalnum(static_cast<unsigned char>(rest.front())) == 0) return &model;
  }
  return nullptr;
}

Boot_config read_boot_config(const System_tree& tree, const Model* model) {
  Boot_config config;
  Reading file;
  // A newer system keeps a file in the old place that only says where the new one is.
  for (const auto* const folder : {"boot/firmware", "boot"}) {
    file = tree.read(std::string(folder) + "/config.txt");
    config.folder = std::string("/") + folder;
    if (file.access != Access::absent) break;
  }
  config.access = file.access;
  if (file.access == Access::absent) config.folder = "/boot/firmware";

  auto counts = Counts::yes;
  std::string section;
  for (const auto raw : split(file.text, '\n')) {
    const auto line = trim(raw.substr(0, most_line_bytes));
    if (line.empty() || line.front() == '#') continue;
    if (line.front() == '[') {
      const auto name = line.substr(1, line.find(']') - 1);
      counts = section_counts(name, model);
      section = counts == Counts::unsure ? "[" + shown(name) + "]" : "";
      continue;
    }
    const auto equals = line.find('=');
    if (counts == Counts::no || equals == std::string_view::npos) continue;
    take_setting(config, line.substr(0, equals), line.substr(equals + 1), section);
  }
  return config;
}

}  // namespace kestrelctl::doctor
