// SPDX-License-Identifier: GPL-3.0-or-later
//
// kestrelctl doctor on small trees: one of a healthy Raspberry Pi 4, what each change to it brings
// to light, and a tree in which nothing is what it should be.
#include "kestrelctl/doctor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

namespace kestrelctl {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

/// Path and content; "-> X" is a link to X, "DIR" a directory, "FIFO" a pipe, "" as a change: no
/// file.
using Files = std::map<std::string, std::string>;

// As a 6.6 kernel of Raspberry Pi OS shows it to root. The model ends in a NUL, as in the device
// tree.
const Files healthy{
    {"proc/device-tree", "-> /sys/firmware/devicetree/base"},
    {"sys/firmware/devicetree/base/model", "Raspberry Pi 4 Model B Rev 1.4\0"s},
    {"sys/firmware/devicetree/base/soc/ranges", std::string(64, '\0')},
    {"dev/spidev0.0", "device"},
    {"dev/mem", "device"},
    {"boot/config.txt", "this file has moved\ncore_freq=600\n"},
    {"boot/firmware/config.txt", "# dtparam=spi=off\r\ndtparam=i2c=on,spi=on\r\ncore_freq=250\r\n"},
    {"boot/config-6.6.20+rpt-rpi-v8",
     "CONFIG_STRICT_DEVMEM=y\n# CONFIG_IO_STRICT_DEVMEM is not set\n"},
    {"proc/sys/kernel/osrelease", "6.6.20+rpt-rpi-v8\n"},
    {"proc/cmdline", "console=tty1 rootwait\n"},
    {"proc/1/comm", "systemd\n"},
    {"sys/class/spi_master/spi0/device/driver", "-> ../../bus/platform/drivers/spi-bcm2835"},
    {"sys/bus/spi/devices/spi0.0/driver", "-> ../../../../bus/spi/drivers/spidev"},
    {"sys/kernel/debug/pinctrl/fe200000.gpio-pinctrl-bcm2711/pinmux-pins",
     "Pinmux settings per pin\n"
     "pin 8 (gpio8): fe204000.spi pinctrl-bcm2711:520 function gpio_out group gpio8\n"
     "pin 9 (gpio9): fe204000.spi (GPIO UNCLAIMED) function alt0 group gpio9\n"
     "pin 23 (gpio23): (MUX UNCLAIMED) (GPIO UNCLAIMED)\n"},
    {"sys/kernel/debug/gpio",
     "gpiochip0: GPIOs 512-569, parent: platform/fe200000.gpio, pinctrl-bcm2711:\n"
     " gpio-519 (SPI_CE1_N           |spi0 CS1            ) out hi ACTIVE LOW\n"
     " gpio-535 (GPIO23              )\n"
     "gpiochip1: GPIOs 570-601, parent: platform/soc:firmware:gpio, raspberrypi-exp-gpio:\n"
     " gpio-593 (GPIO23              |led1                ) out lo\n"},
    {"sys/kernel/debug/clk/vpu/clk_rate", "200000000\n"},
    {"usr/bin/kestrel", "program"},
};

class Tree {
 public:
  Tree() {
    std::string name = (fs::temp_directory_path() / "kestrelctl_doctor_XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    top_ = name;
  }
  ~Tree() { fs::remove_all(top_); }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  fs::path root() const { return top_ / "root"; }

  void write(const Files& files) const {
    for (const auto& [path, content] : files) {
      const auto full = root() / path;
      fs::create_directories(full.parent_path());
      fs::remove_all(full);
      if (content.starts_with("-> ")) {
        fs::create_symlink(content.substr(3), full);
      } else if (content == "DIR") {
        fs::create_directory(full);
      } else if (content == "FIFO") {
        ASSERT_EQ(::mkfifo(full.c_str(), 0600), 0);
      } else if (!content.empty()) {
        std::ofstream(full, std::ios::binary) << content;
      }
    }
  }

 private:
  fs::path top_;
};

struct Case {
  const char* name;
  Files changes;
  /// How the lines begin that tell of it. Those that are not "ok" are all that there may be.
  std::vector<std::string> lines;
};

const std::string config = "boot/firmware/config.txt";
const std::string model = "sys/firmware/devicetree/base/model";
const std::string ranges = "sys/firmware/devicetree/base/soc/ranges";
const std::string kernel_config = "boot/config-6.6.20+rpt-rpi-v8";
const std::string pinmux = "sys/kernel/debug/pinctrl/fe200000.gpio-pinctrl-bcm2711/pinmux-pins";
const std::string gpio = "sys/kernel/debug/gpio";
const std::string clock_rate = "sys/kernel/debug/clk/vpu/clk_rate";
const std::string cm = "Raspberry Pi Compute Module ";
const std::string no_spidev = "failure  SPI: there is no /dev/spidev0.0";
const std::string rp1 = ": its header is on another chip";

const Case cases[] = {
    {"healthy",
     {},
     {"ok       board: Raspberry Pi 4 Model B Rev 1.4", "ok       SPI: /dev/spidev0.0 is there",
      "ok       clock: SPI0 has 7.8125 MHz (core clock 250 MHz by core_freq in /boot/firmware/",
      "ok       SPI0: no other driver uses it; the controller's driver is spi-bcm2835",
      "ok       kernel: 6.6.20+rpt-rpi-v8 gives", "ok       pins: nobody"}},
    // Boards.
    {"no board",
     {{"proc/device-tree", ""}},
     {"failure  board: not a Raspberry Pi, there is no", "warning  registers: /proc/device-tree"}},
    {"a 3",
     {{ranges, "123456789012"}, {model, "Raspberry Pi 3 Model B"}},
     {"ok       registers: "}},
    {"a 5", {{model, "Raspberry Pi 5 Model B"}}, {"failure  board: Raspberry Pi 5 Model B" + rp1}},
    {"a 500", {{model, "Raspberry Pi 500"}}, {"failure  board: Raspberry Pi 500" + rp1}},
    {"a CM 5", {{model, cm + "5 Lite"}}, {"failure  board: " + cm + "5 Lite" + rp1}},
    {"a CM 4", {{model, cm + "4"}}, {"warning  board: " + cm + "4: kestrel was not tried"}},
    {"a 1",
     {{model, "Raspberry Pi Model B"}},
     {"ok       board: Raspberry Pi Model B: kestrel reports an unsupported hardware version 29"}},
    {"a model to come",
     {{model, "Raspberry Pi 41"}, {ranges, "123456789012345"}},
     {"warning  board: Raspberry Pi 41 is a model that kestrel does not know",
      "warning  registers: /proc/device-tree/soc/ranges is too short"}},
    {"another maker",
     {{model, "Some\x1b[2J Pi"}},
     {"failure  board: not a Raspberry Pi but \"Some [2J Pi\": run"}},
    // SPI, config.txt, and the clock that it sets.
    {"SPI off again",
     {{"dev/spidev0.0", ""}, {config, "dtparam=spi=on\ncore_freq=250\ndtparam=spi=off\n"}},
     {no_spidev + ": put the line dtparam=spi=on below [all]"}},
    {"SPI on for others",
     {{"dev/spidev0.0", ""},
      {config, "core_freq=250\n[pi3]\ndtparam=spi=on\ncore_freq=400\n[none]\ndtparam=spi"}},
     {no_spidev + ": put the line dtparam=spi=on below [all]"}},
    {"SPI on after the next boot, fast at once",
     {{"dev/spidev0.0", "DIR"},
      {config, "[pi3]\n[all]\ncore_freq=250\n[pi4]\ndtparam=audio=on,spi\n"},
      {clock_rate, "400000000"}},
     {no_spidev + " though dtparam=spi=on stands in /boot/firmware/config.txt: reboot",
      "warning  clock: SPI0 has 12.5 MHz (core clock 400 MHz now), above the receiver's 10 MHz: "
      "put core_freq=250 and core_freq_min=250 into /boot/firmware/config.txt"}},
    {"SPI on with a pin, fast with a display",
     {{"dev/spidev0.0", ""},
      {config, "core_freq=250\n[gpio4=1]\ndtparam=spi=on\n[HDMI:0]\ncore_freq=500"}},
     {no_spidev + ", and dtparam=spi=on stands below [gpio4=1] in",
      "warning  clock: SPI0 has 15.625 MHz (core clock 500 MHz by core_freq below [HDMI:0] in"}},
    {"fast under load",
     {{config, "core_freq=99999999999999999999\n"}},
     {"warning  clock: SPI0 has 15.625 MHz (core clock 500 MHz under load, 200 MHz when idle,"}},
    {"an older system",
     {{config, ""}, {"boot/config.txt", "core_freq=320"}},
     {"ok       clock: SPI0 has 10 MHz (core clock 320 MHz by core_freq in /boot/config.txt)"}},
    {"slow by nature",
     {{config, ""}, {"boot/config.txt", ""}, {model, "Raspberry Pi 2 Model B"}},
     {"ok       clock: SPI0 has 7.8125 MHz (core clock 250 MHz under load"}},
    // /dev/mem and kernels; programs.
    {"locked down, not installed",
     {{"sys/kernel/security/lockdown", "none [integrity] confidentiality\n"},
      {"dev/mem", "-> nothing"},
      {"usr/bin/kestrel", "DIR"}},
     {"failure  /dev/mem: is missing", "failure  kernel: it is locked down (integrity)",
      "warning  program: not installed in /usr/bin or /usr/local/bin: "}},
    {"strict",
     {{kernel_config, "A=1\nCONFIG_IO_STRICT_DEVMEM=y\n"}, {"proc/cmdline", "xiomem=relaxed"}},
     {"failure  kernel: 6.6.20+rpt-rpi-v8 has CONFIG_IO_STRICT_DEVMEM and refuses the registers of "
      "SPI0: put iomem=relaxed at the end of the one line in /boot/firmware/cmdline.txt"}},
    {"strict and relaxed",
     {{kernel_config, "CONFIG_IO_STRICT_DEVMEM=y\n"},
      {"proc/cmdline", "quiet iomem=relaxed\n"},
      {"sys/kernel/security/lockdown", "[none] integrity\n"}},
     {"ok       kernel: iomem=relaxed gives out"}},
    {"a release that leads astray",
     {{"proc/sys/kernel/osrelease", "x/../../strict"},
      {"boot/config-x/y", "1"},
      {"strict", "CONFIG_IO_STRICT_DEVMEM=y\n"}},
     {"ok       kernel: x/../../strict, whose policy is not known"}},
    // Others on the bus and on the pins.
    {"a touch screen, another kestrel",
     {{"sys/bus/spi/devices/spi0.1/driver", "-> /sys/bus/spi/drivers/ads7846"},
      {gpio,
       "gpiochip0: GPIOs 512-569, parent: platform/fe200000.gpio, pinctrl-bcm2711:\n"
       " gpio-535 (RESET |pendown) in hi\n"},
      {"proc/812/comm", "kestrel\n"},
      {"proc/813/comm", "kestrelctl\n"}},
     {"failure  SPI0: the driver ads7846 has spi0.1 (the controller's driver is spi-bcm2835): "
      "remove its dtoverlay from /boot/firmware/config.txt",
      "warning  pins: GPIO 23 is in use by pendown: remove",
      "warning  processes: kestrel runs as process 812: "}},
    {"pins of others",
     {{pinmux,
       "pin 7 (gpio7): (MUX UNCLAIMED) pinctrl-bcm2711:519\n"
       "pin 10 (gpio10): device fe215040.serial function alt5 group gpio10\n"
       "pin 9 (gpio9): GPIO pinctrl-bcm2711:521\n"},
      {gpio,
       "gpiochip0: 58 GPIOs, parent: platform/fe200000.gpio, pinctrl-bcm2711:\n"
       " gpio-7   (SPI_CE1_N           |spi0 CS1  ) out hi\n"
       " gpio-23  (                    |reset (1) ) out hi\n"}},
     {"warning  pins: GPIO 9 is in use by pinctrl-bcm2711:521: remove",
      "warning  pins: GPIO 10 is in use by fe215040.serial: remove",
      "warning  pins: GPIO 23 is in use by reset (1): remove"}},
    {"SPI0 on the reset pin, no header",
     {{pinmux, "pin 23 (gpio23): fe204000.spi (GPIO UNCLAIMED) function gpio_out group gpio23\n"},
      {gpio, " gpio-520 (GPIO8 |led ) out hi\n"}},
     {"warning  pins: GPIO 8 is in use by led",
      "warning  pins: GPIO 23 is in use by fe204000.spi"}},
    {"no debugfs",
     {{"sys/kernel/debug", "DIR"}},
     {"warning  pins: who has GPIO 7 to 11 and 23 cannot be seen without debugfs"}},
    {"debugfs of root",
     {{"sys/kernel/debug/pinctrl", "-> pinctrl"}, {gpio, "DIR"}},
     {"warning  pins: who has GPIO 7 to 11 and 23 is only told to root: run with sudo"}},
};

int status_of(const std::string& line) {
  return line.starts_with("failure") ? 2 : line.starts_with("warning") ? 1 : 0;
}

TEST(Doctor, names_what_each_change_to_a_healthy_system_breaks_and_nothing_else) {
  for (const auto& c : cases) {
    const Tree tree;
    tree.write(healthy);
    tree.write(c.changes);
    std::ostringstream out;
    const int status = run_doctor(tree.root(), out);
    SCOPED_TRACE(c.name + ("\n" + out.str()));
    int worst = 0;
    std::ptrdiff_t troubles = 0;
    for (const auto& line : c.lines) {
      EXPECT_NE(("\n" + out.str()).find("\n" + line), std::string::npos) << line;
      worst = std::max(worst, status_of(line));
      troubles += status_of(line) > 0 ? 1 : 0;
    }
    EXPECT_EQ(status, worst);
    const auto is_trouble = [](const Finding& f) { return f.severity != Severity::ok; };
    EXPECT_EQ(std::ranges::count_if(examine(tree.root()), is_trouble), troubles);
  }
}

TEST(Doctor, sums_up_and_exits_by_the_worst_finding) {
  const Tree tree;
  tree.write(healthy);
  const auto last_line = [&tree] {
    std::ostringstream out;
    run_doctor(tree.root(), out);
    const auto text = out.str();
    return text.substr(text.rfind('\n', text.size() - 2) + 1);
  };
  EXPECT_EQ(last_line(), "All is well.\n");
  tree.write({{"usr/bin/kestrel", ""}});
  EXPECT_EQ(last_line(), "kestrel should work; 1 warning.\n");
  tree.write({{"dev/mem", ""}, {"dev/spidev0.0", ""}});
  EXPECT_EQ(last_line(), "kestrel will not work: 2 failures, 1 warning.\n");
}

// The same rubbish in place of every file: whatever it is, each line is a finding, and printable.
TEST(Doctor, survives_garbage_and_reads_nothing_outside_the_root) {
  std::string noise =
      "[\x9b(|)]=,: gpio-\n gpio-1(|\n[\npin  (gpio99999999999999999999): \npin (gpio): (\n=\n";
  while (noise.size() < 3'000'000) noise += "\xff\x1b[31m\x07\0"s + noise.substr(0, 100'000);
  const Tree tree;
  const auto outside = tree.root().parent_path() / "outside";
  std::ofstream(outside) << "Raspberry Pi 4\n";
  for (const auto& rubbish :
       {noise, "\n"s, "DIR"s, "FIFO"s, "-> ."s, "-> ../"s, "-> /"s, "-> self"s,
        "-> " + outside.string(), "-> ../../../../../../../../../outside"s}) {
    fs::remove_all(tree.root());
    for (const auto& [path, content] : healthy) tree.write({{path, rubbish}});
    fs::remove(tree.root() / "proc/device-tree");
    tree.write({{"proc/device-tree/model", rubbish}, {"proc/99999999999999999999/comm", rubbish}});
    std::ostringstream out;
    EXPECT_NE(run_doctor(tree.root(), out), 0);
    EXPECT_EQ(out.str().find("Raspberry Pi 4"), std::string::npos) << out.str();
    const auto is_control = [](unsigned char c) { return (c < 0x20 && c != 0x0A) || c == 0x7F; };
    EXPECT_TRUE(std::ranges::none_of(out.str(), is_control)) << rubbish.substr(0, 40);
    for (const auto& finding : examine(tree.root())) EXPECT_LT(finding.text.size(), 600U);
  }
}

TEST(Doctor, asks_for_root_on_this_machine_alone) {
  const auto asks = [](const fs::path& root) {
    return std::ranges::count(examine(root), "root", &Finding::subject);
  };
  const Tree tree;
  EXPECT_EQ(asks(tree.root()), 0);
  EXPECT_EQ(asks("/"), 1);
}

}  // namespace
}  // namespace kestrelctl
