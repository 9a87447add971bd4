// SPDX-License-Identifier: GPL-3.0-or-later
//
// Who has the pins that kestrel drives, as the kernel's debugfs tells it in two places: the pin
// controller knows which device a pin was switched for, the GPIO chip what a single line is used
// as. Neither has a fixed form; lines that are not understood are passed over.
#include <array>
#include <map>

#include "kestrelctl/doctor_checks.h"

namespace kestrelctl::doctor {
namespace {

namespace fs = std::filesystem;

/// Owners of a pin, as the kernel writes them; empty where there is none.
struct Pin_use {
  std::string device;    ///< whose function the pin was switched to
  std::string gpio;      ///< the GPIO chip and number, if it is used as a line
  std::string consumer;  ///< what the line is used as
};
using Pin_uses = std::map<std::uint64_t, Pin_use>;

constexpr auto spi0_pins = std::to_array<std::uint64_t>({7, 8, 9, 10, 11});
constexpr std::uint64_t reset_pin = 23;

/// Cut the next word off, or the next group in parentheses: "(MUX UNCLAIMED) fe204000.spi ...".
std::string_view take_token(std::string_view& text) {
  text = trim(text);
  const auto end = text.starts_with('(') ? text.find(')') : text.find(' ');
  const auto token = text.substr(0, end == std::string_view::npos ? end : end + 1);
  text.remove_prefix(token.size());
  return trim(token);
}

std::string owner(std::string_view token) {
  return token.starts_with('(') || token == "UNCLAIMED" ? std::string() : shown(token);
}

/// pin 9 (gpio9): fe204000.spi (GPIO UNCLAIMED) function alt0 group gpio9
/// pin 9 (gpio9): device fe204000.spi function alt0 group gpio9
/// pin 9 (gpio9): GPIO pinctrl-bcm2711:521
void take_pinmux_line(std::string_view line, Pin_uses& uses) {
  constexpr std::string_view name_start = " (gpio";
  const auto name = line.find(name_start);
  const auto colon = line.find("): ");
  if (!line.starts_with("pin ") || name == std::string_view::npos ||
      colon == std::string_view::npos) {
    return;
  }
  const auto pin = leading_number(line.substr(name + name_start.size()));
  if (!pin) return;
  auto& use = uses[*pin];
  auto rest = line.substr(colon + 2);
  const auto first = take_token(rest);
  const auto second = owner(take_token(rest));
  if (first == "device") {
    use.device = second;
  } else if (first == "GPIO") {
    use.gpio = second;
  } else {
    use.device = owner(first);
    use.gpio = second;
  }
}

/// The GPIO chip that the lines below a header belong to.
struct Chip {
  bool has_header = false;
  bool has_pins = true;  ///< whether it is the processor's own
  std::uint64_t first_line = 0;
};

/// gpiochip0: GPIOs 512-569, parent: platform/fe200000.gpio, pinctrl-bcm2711:
/// gpiochip0: 58 GPIOs, parent: platform/fe200000.gpio, pinctrl-bcm2711:
Chip read_chip(std::string_view line) {
  constexpr std::string_view range = ": GPIOs ";
  Chip chip{true, line.find("pinctrl-") != std::string_view::npos, 0};
  const auto at = line.find(range);
  if (at != std::string_view::npos) {
    chip.first_line = leading_number(line.substr(at + range.size())).value_or(0);
  }
  return chip;
}

///  gpio-520 (GPIO8               |spi0 CS0            ) out hi ACTIVE LOW
void take_gpio_line(std::string_view line, const Chip& chip, Pin_uses& uses) {
  constexpr std::string_view number_start = " gpio-";
  constexpr std::string_view name_start = "GPIO";
  const auto open = line.find('(');
  const auto bar = line.find('|');
  const auto close = line.rfind(')');
  if (!line.starts_with(number_start) || !chip.has_pins || close == std::string_view::npos ||
      bar >= close || open >= bar) {
    return;
  }
  auto pin = leading_number(line.substr(number_start.size()));
  const auto name = line.substr(open + 1);
  if (chip.has_header) {
    if (pin && *pin < chip.first_line) return;
    if (pin) *pin -= chip.first_line;
  } else if (name.starts_with(name_start)) {
    pin = leading_number(name.substr(name_start.size()));
  }
  if (pin) uses[*pin].consumer = shown(line.substr(bar + 1, close - bar - 1));
}

Access read_uses(const System_tree& tree, Pin_uses& uses) {
  const std::string controllers = "sys/kernel/debug/pinctrl";
  const auto listing = tree.list(controllers);
  bool was_read = false;
  for (const auto& controller : listing.names) {
    const auto pinmux = tree.read(fs::path(controllers) / controller / "pinmux-pins");
    was_read |= pinmux.access == Access::present;
    for (const auto line : split(pinmux.text, '\n')) take_pinmux_line(line, uses);
  }
  const auto gpio = tree.read("sys/kernel/debug/gpio");
  was_read |= gpio.access == Access::present;
  Chip chip;
  for (const auto line : split(gpio.text, '\n')) {
    if (line.starts_with("gpiochip")) chip = read_chip(line);
    take_gpio_line(line, chip, uses);
  }
  if (was_read) return Access::present;
  return listing.access == Access::unreadable ? listing.access : gpio.access;
}

/// Whom kestrel would disturb at this pin; empty: nobody.
std::string find_stranger(const Pin_use& use, bool is_spi0_pin) {
  // SPI0 lies at this offset in the peripheral block of every model that kestrel drives; the two
  // chip selects are plain lines for its driver.
  const bool is_spi0 = is_spi0_pin && use.device.ends_with("204000.spi");
  const bool is_select = is_spi0_pin && use.consumer.starts_with("spi0 CS");
  if (!use.device.empty() && !is_spi0) return use.device;
  if (is_select) return {};
  if (!use.consumer.empty()) return use.consumer;
  // The chip's name alone does not tell a chip select from another use.
  return is_spi0 ? std::string() : use.gpio;
}

}  // namespace

void check_pins(const System& system, Report& report) {
  Pin_uses uses;
  const auto access = read_uses(system.tree, uses);
  if (access == Access::unreadable) {
    report.warn("who has GPIO 7 to 11 and 23 is only told to root", "run with sudo to see");
    return;
  }
  if (access == Access::absent) {
    report.warn("who has GPIO 7 to 11 and 23 cannot be seen without debugfs",
                "mount -t debugfs none /sys/kernel/debug");
    return;
  }
  bool is_free = true;
  const auto judge = [&](std::uint64_t pin, bool is_spi0_pin) {
    const auto stranger = find_stranger(uses[pin], is_spi0_pin);
    if (stranger.empty()) return;
    is_free = false;
    report.warn("GPIO " + std::to_string(pin) + " is in use by " + stranger,
                "remove its dtoverlay or end the program that holds it");
  };
  for (const auto pin : spi0_pins) judge(pin, true);
  judge(reset_pin, false);
  if (is_free) report.ok("nobody but SPI0 has GPIO 7 to 11, nobody has 23");
}

}  // namespace kestrelctl::doctor
