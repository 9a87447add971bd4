// SPDX-License-Identifier: GPL-3.0-or-later
//
// The table of the models, and as much of config.txt as SPI0 and its clock depend on.
#include "kestrelctl/doctor_board.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <regex>
#include <sstream>

#include "kestrelctl/text.h"

namespace kestrelctl::doctor {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view on_rp1 = ", whose header is on another chip that the driver cannot use";
constexpr std::string_view untried = ", on which the radio has not been tried";

// The first row that fits counts: a longer name comes before a shorter one.
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
    {"Raspberry Pi Model", Severity::ok, "", 250, 250, "pi1"},
});

// The firmware reads no more of a line.
constexpr std::size_t most_line_bytes = 98;

}  // namespace

std::optional<std::string> read_file(const fs::path& path, std::size_t most_bytes) {
  // Opening a pipe would wait for its writer, and opening a device can have an effect.
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  // The files of proc and sysfs do not tell their length before they are read.
  std::string text;
  for (std::array<char, 4096> block{}; file && text.size() < most_bytes;) {
    file.read(block.data(), block.size());
    text.append(block.data(), static_cast<std::size_t>(file.gcount()));
  }
  if (!file.is_open() || file.bad()) return std::nullopt;
  return text.substr(0, most_bytes);
}

std::string_view trim(std::string_view text) {
  constexpr std::string_view blank(" \t\r\n\v\f\0", 7);
  const auto first = text.find_first_not_of(blank);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blank) - first + 1);
}

bool has_word(std::string_view words, std::string_view word) {
  return fmt::format(" {} ", words).find(fmt::format(" {} ", word)) != std::string::npos;
}

const Model* find_model(std::string_view name) {
  const auto* const model = std::find_if(models.begin(), models.end(), [name](const Model& row) {
    // "Raspberry Pi 5" must not take what begins "Raspberry Pi 50".
    return name.starts_with(row.name) &&
           (name.size() == row.name.size() ||
            std::isalnum(static_cast<unsigned char>(name[row.name.size()])) == 0);
  });
  return model == models.end() ? nullptr : model;
}

Boot_config read_boot_config(const fs::path& root, const Model* model) {
  Boot_config config;
  // A newer system keeps a file in the old place that only says where the new one is.
  std::error_code error;
  const bool is_old = !fs::exists(root / "boot/firmware/config.txt", error) &&
                      fs::exists(root / "boot/config.txt", error);
  config.file = is_old ? "/boot/config.txt" : "/boot/firmware/config.txt";
  const auto text = read_file(root / config.file.substr(1));
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

}  // namespace kestrelctl::doctor
