// SPDX-License-Identifier: GPL-3.0-or-later
//
// kestrelctl doctor on small trees: one of a healthy Raspberry Pi 4, what each change to it brings
// to light, and a tree in which nothing is what it should be.
#include "kestrelctl/doctor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "../directory.h"

namespace kestrelctl {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

struct File {
  std::string name;     ///< in the rows below
  std::string path;     ///< below the root
  std::string content;  ///< "-> X" is a link to X, "DIR" a directory, "FIFO" a pipe, "" no file
};

// As a 6.6 kernel of Raspberry Pi OS shows it to root. The model ends in a NUL, as in the device
// tree.
const File healthy[]{
    {"tree", "proc/device-tree", "-> /sys/firmware/devicetree/base"},
    {"model", "sys/firmware/devicetree/base/model", "Raspberry Pi 4 Model B Rev 1.4\0"s},
    {"ranges", "sys/firmware/devicetree/base/soc/ranges", std::string(64, '\0')},
    {"spidev", "dev/spidev0.0", "device"},
    {"mem", "dev/mem", "device"},
    {"old_config", "boot/config.txt", "this file has moved\ncore_freq=600\n"},
    {"config", "boot/firmware/config.txt",
     "# dtparam=spi=off\r\ndtparam=i2c=on,spi=on\r\ncore_freq=250\r\n"},
    {"policy", "boot/config-6.6.20+rpt-rpi-v8",
     "CONFIG_STRICT_DEVMEM=y\n# CONFIG_IO_STRICT_DEVMEM is not set\n"},
    {"release", "proc/sys/kernel/osrelease", "6.6.20+rpt-rpi-v8\n"},
    {"cmdline", "proc/cmdline", "console=tty1 rootwait\n"},
    {"process", "proc/1/comm", "systemd\n"},
    {"spi0", "sys/class/spi_master/spi0/device/driver",
     "-> ../../bus/platform/drivers/spi-bcm2835"},
    {"spi0.0", "sys/bus/spi/devices/spi0.0/driver", "-> ../../../../bus/spi/drivers/spidev"},
    {"pinmux", "sys/kernel/debug/pinctrl/fe200000.gpio-pinctrl-bcm2711/pinmux-pins",
     "Pinmux settings per pin\n"
     "pin 8 (gpio8): fe204000.spi pinctrl-bcm2711:520 function gpio_out group gpio8\n"
     "pin 9 (gpio9): fe204000.spi (GPIO UNCLAIMED) function alt0 group gpio9\n"
     "pin 23 (gpio23): (MUX UNCLAIMED) (GPIO UNCLAIMED)\n"},
    {"gpio", "sys/kernel/debug/gpio",
     "gpiochip0: GPIOs 512-569, parent: platform/fe200000.gpio, pinctrl-bcm2711:\n"
     " gpio-519 (SPI_CE1_N           |spi0 CS1            ) out hi ACTIVE LOW\n"
     " gpio-535 (GPIO23              )\n"
     "gpiochip1: GPIOs 570-601, parent: platform/soc:firmware:gpio, raspberrypi-exp-gpio:\n"
     " gpio-593 (GPIO23              |led1                ) out lo\n"},
    {"clock", "sys/kernel/debug/clk/vpu/clk_rate", "200000000\n"},
    {"program", "usr/bin/kestrel", "program"},
};

class Tree {
 public:
  Tree() {
    for (const auto& file : healthy) write(file.path, file.content);
  }
  [[nodiscard]] fs::path root() const { return directory_.path("root"); }
  /// Take the file, the link or the directory away, and put `content` in its place.
  void write(const std::string& path, const std::string& content) const {
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
      directory_.write("root/" + path, content);
    }
  }

 private:
  Directory directory_;
};

// Changes to the healthy system, and how the lines begin that tell of them, between semicolons; the
// line that sums up behind a ">". All findings that are no "ok" must be there.
const char* const rows[] = {
    "ok board: Raspberry Pi 4 Model B Rev 1.4 ; ok SPI: /dev/spidev0.0 is there ; "
    "ok clock: SPI0 has 7.8125 MHz (core clock 250 MHz by core_freq in /boot/firmware/ ; "
    "ok SPI0: no other driver uses it; the controller's driver is spi-bcm2835 ; "
    "ok kernel: 6.6.20+rpt-rpi-v8 gives ; ok pins: nobody ; > All is well.\n",
    // Boards; the last is of another maker.
    "tree= ; failure board: not a Raspberry Pi, there is no ; warning registers: /proc/device-tree",
    "ranges=123456789012 ; model=Raspberry Pi 3 Model B ; ok registers: ",
    "model=Raspberry Pi 5 Model B ; failure board: Raspberry Pi 5 Model B: its header is on",
    "model=Raspberry Pi 500 ; failure board: Raspberry Pi 500: its header is on another chip",
    "model=Raspberry Pi Compute Module 5 ; failure board: Raspberry Pi Compute Module 5: its",
    "model=Raspberry Pi Compute Module 4 ; warning board: Raspberry Pi Compute Module 4: kestrel",
    "model=Raspberry Pi Model B ; ok board: Raspberry Pi Model B: kestrel reports an unsupported "
    "hardware version 29",
    "model=Raspberry Pi 41 ; ranges=123456789012345 ; "
    "warning board: Raspberry Pi 41 is a model that kestrel does not know ; "
    "warning registers: /proc/device-tree/soc/ranges is too short",
    "model=Some\x1b[2J Pi ; failure board: not a Raspberry Pi but \"Some [2J Pi\": run",
    // SPI is off again, is on for others, on after the next boot, on with a pin; then the clock: by
    // what is set now, for a display, by a number too large, on an older system, by the model.
    "spidev= ; config=dtparam=spi=on\ncore_freq=250\ndtparam=spi=off\n ; "
    "failure SPI: there is no /dev/spidev0.0: put the line dtparam=spi=on below [all]",
    "spidev= ; config=core_freq=250\n[pi3]\ndtparam=spi=on\ncore_freq=400\n[none]\ndtparam=spi ; "
    "failure SPI: there is no /dev/spidev0.0: put the line dtparam=spi=on below [all]",
    "spidev=DIR ; config=[pi3]\n[all]\ncore_freq=250\n[pi4]\ndtparam=audio=on,spi\n ; "
    "failure SPI: there is no /dev/spidev0.0 though dtparam=spi=on stands in "
    "/boot/firmware/config.txt: reboot ; clock=400000000 ; "
    "warning clock: SPI0 has 12.5 MHz (core clock 400 MHz now), above the receiver's 10 MHz: "
    "put core_freq=250 and core_freq_min=250 into /boot/firmware/config.txt",
    "spidev= ; config=core_freq=250\n[gpio4=1]\ndtparam=spi=on\n[HDMI:0]\ncore_freq=500 ; "
    "failure SPI: there is no /dev/spidev0.0, and dtparam=spi=on stands below [gpio4=1] in ; "
    "warning clock: SPI0 has 15.625 MHz (core clock 500 MHz by core_freq below [HDMI:0] in",
    "config=core_freq=99999999999999999999\n ; "
    "warning clock: SPI0 has 15.625 MHz (core clock 500 MHz under load, 200 MHz when idle,",
    "config= ; old_config=core_freq=320 ; "
    "ok clock: SPI0 has 10 MHz (core clock 320 MHz by core_freq in /boot/config.txt)",
    "config= ; old_config= ; model=Raspberry Pi 2 Model B ; "
    "ok clock: SPI0 has 7.8125 MHz (core clock 250 MHz under load",
    // /dev/mem and what kernels keep to themselves; no program; a release that leads astray.
    "sys/kernel/security/lockdown=none [integrity] confidentiality\n ; mem=-> nothing ; "
    "failure /dev/mem: is missing ; failure kernel: it is locked down (integrity) ; "
    "program=DIR ; warning program: not installed in /usr/bin or /usr/local/bin: ; "
    "> kestrel will not work: 2 failures, 1 warning.\n",
    "policy=A=1\nCONFIG_IO_STRICT_DEVMEM=y\n ; cmdline=xiomem=relaxed ; "
    "failure kernel: 6.6.20+rpt-rpi-v8 has CONFIG_IO_STRICT_DEVMEM and refuses the registers of "
    "SPI0: put iomem=relaxed at the end of the one line in /boot/firmware/cmdline.txt",
    "policy=CONFIG_IO_STRICT_DEVMEM=y\n ; cmdline=quiet iomem=relaxed\n ; "
    "sys/kernel/security/lockdown=[none] integrity\n ; ok kernel: iomem=relaxed gives out",
    "release=x/../../strict ; boot/config-x/y=1 ; strict=CONFIG_IO_STRICT_DEVMEM=y\n ; "
    "ok kernel: x/../../strict, whose policy is not known",
    // A touch screen, another kestrel; others on the pins, SPI0 on the reset pin; no debugfs.
    "sys/bus/spi/devices/spi0.1/driver=-> /sys/bus/spi/drivers/ads7846 ; "
    "failure SPI0: the driver ads7846 has spi0.1 (the controller's driver is spi-bcm2835): "
    "remove its dtoverlay from /boot/firmware/config.txt ; "
    "gpio=gpiochip0: GPIOs 512-569, parent: platform/fe200000.gpio, pinctrl-bcm2711:\n"
    " gpio-535 (RESET |pendown) in hi\n ; warning pins: GPIO 23 is in use by pendown: remove ; "
    "proc/812/comm=kestrel\n ; proc/813/comm=kestrelctl\n ; "
    "warning processes: kestrel runs as process 812: ",
    "pinmux=pin 7 (gpio7): (MUX UNCLAIMED) pinctrl-bcm2711:519\n"
    "pin 10 (gpio10): device fe215040.serial function alt5 group gpio10\n"
    "pin 9 (gpio9): GPIO pinctrl-bcm2711:521\n ; "
    "warning pins: GPIO 9 is in use by pinctrl-bcm2711:521: remove ; "
    "warning pins: GPIO 10 is in use by fe215040.serial: remove ; "
    "gpio=gpiochip0: 58 GPIOs, parent: platform/fe200000.gpio, pinctrl-bcm2711:\n"
    " gpio-7   (SPI_CE1_N           |spi0 CS1  ) out hi\n"
    " gpio-23  (                    |reset (1) ) out hi\n ; "
    "warning pins: GPIO 23 is in use by reset (1): remove",
    "pinmux=pin 23 (gpio23): fe204000.spi (GPIO UNCLAIMED) function gpio_out group gpio23\n ; "
    "gpio= gpio-520 (GPIO8 |led ) out hi\n ; warning pins: GPIO 8 is in use by led ; "
    "warning pins: GPIO 23 is in use by fe204000.spi",
    "sys/kernel/debug=DIR ; warning pins: who has GPIO 7 to 11 and 23 cannot be seen without "
    "debugfs ; > kestrel should work; 1 warning.\n",
    "sys/kernel/debug/pinctrl=-> pinctrl ; gpio=DIR ; "
    "warning pins: who has GPIO 7 to 11 and 23 is only told to root: run with sudo",
};

TEST(Doctor, names_what_each_change_to_a_healthy_system_breaks_and_nothing_else) {
  const std::map<std::string, int> severities{{">", 0}, {"ok", 0}, {"warning", 1}, {"failure", 2}};
  for (const std::string row : rows) {
    const Tree tree;
    std::vector<std::string> lines;
    std::string summary;
    int worst = 0, troubles = 0;
    for (std::size_t at = 0, end = 0; end != row.npos; at = end + 3) {
      end = row.find(" ; ", at);
      const auto field = row.substr(at, end - at);
      auto word = field.substr(0, field.find_first_of(" ="));
      const auto rest = field.substr(word.size() + 1);
      if (const auto severity = severities.find(word); severity != severities.end()) {
        word.resize(9, ' ');
        (word[0] == '>' ? summary : lines.emplace_back(word)) += rest;
        worst = std::max(worst, severity->second);
        troubles += severity->second > 0 ? 1 : 0;
      } else {
        const auto* const file = std::ranges::find(healthy, word, &File::name);
        tree.write(file != std::end(healthy) ? file->path : word, rest);
      }
    }
    std::ostringstream out;
    EXPECT_EQ(run_doctor(tree.root(), out), worst) << row;
    for (const auto& line : lines) {
      EXPECT_NE(('\n' + out.str()).find('\n' + line), std::string::npos) << line << out.str();
    }
    EXPECT_TRUE(out.str().ends_with('\n' + summary)) << out.str();
    const auto is_trouble = [](const Finding& f) { return f.severity != Severity::ok; };
    EXPECT_EQ(std::ranges::count_if(examine(tree.root()), is_trouble), troubles) << out.str();
  }
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
    for (const auto& file : healthy) tree.write(file.path, rubbish);
    tree.write("proc/device-tree", "");
    for (const auto* path : {"proc/device-tree/model", "proc/99999999999999999999/comm"}) {
      tree.write(path, rubbish);
    }
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
