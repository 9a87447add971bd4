// SPDX-License-Identifier: GPL-3.0-or-later
//
// kestrelctl doctor on small trees: a healthy Raspberry Pi 4, what each change to it brings to
// light, and a tree in which nothing is what it should be.
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

/// Paths below the root, and what is there: "" for nothing, "DIR", "FIFO" or "EMPTY" for such.
using Files = std::map<std::string, std::string>;

const std::string model = "proc/device-tree/model", config = "boot/firmware/config.txt",
                  spidev = "dev/spidev0.0", old_place = "boot/config.txt",
                  program = "usr/bin/kestrel";
const Files healthy{{model, "Raspberry Pi 4 Model B Rev 1.4\0"s},
                    {spidev, "device"},
                    {"dev/mem", "device"},
                    {config, "# dtparam=spi=off\r\ndtparam=i2c=on,spi=on\r\ncore_freq=250\r\n"},
                    {old_place, "this file has moved\ncore_freq=600\n"},
                    {"sys/kernel/security/lockdown", "[none] integrity confidentiality\n"},
                    {program, "\177ELF and images"},
                    {"usr/local/bin/kestrelctl", "\177ELF and images"}};

/// The status, the output, and how often the receiver was asked.
auto examine(const Files& files, const std::string& answer) {
  const Directory root;
  for (const auto& [name, content] : files) {
    const fs::path path = root.path(name);
    fs::create_directories(content == "DIR" ? path : path.parent_path());
    if (content == "FIFO") ::mkfifo(path.c_str(), 0700);
    if (content.empty() || content == "DIR" || content == "FIFO") continue;
    root.write(name, content == "EMPTY" ? "" : content);
    fs::permissions(path, fs::perms::owner_all);
  }
  ::setenv("PATH", "bin:/usr/local/bin:/usr/bin", 1);
  int questions = 0;
  std::ostringstream out;
  const auto ask = [&] {
    ++questions;
    return answer.empty() ? throw std::runtime_error("does\x1b not") : answer;
  };
  const int status = run_doctor(root.path(""), ask, out);
  return std::tuple(status, out.str(), questions);
}

const std::string no_spidev = "failure  SPI: there is no /dev/spidev0.0";
const std::string is_on = no_spidev + " although dtparam=spi=on is ";
const std::string put_line = ": put dtparam=spi=on below [all] in /boot/firmware/config.txt";
const std::string runs_at = "ok       clock: SPI0 has ", too_fast = "warning  clock: SPI0 has ";
const std::string kestrel = "failure  kestrel: /usr/bin/kestrel ";

struct Case {
  Files changes = {};              ///< to the healthy system
  std::vector<std::string> lines;  ///< how they begin; of warnings and failures all
  std::string answer = "answers";  ///< of the receiver; "": none
};
const Case cases[]{
    {.lines = {"ok       board: Raspberry Pi 4 Model B Rev 1.4\n",
               "ok       SPI: /dev/spidev0.0 is", "ok       /dev/mem: is there; only",
               "ok       root: ", "ok       receiver: answers\n",
               runs_at + "7.8125 MHz (core clock 250 MHz by core_freq in /boot/firmware/config.t",
               "ok       kestrel: /usr/bin/kestrel\n", "All is well.\n"}},
    // Boards, and what else is unknown on one to come.
    {.changes = {{model, ""}}, .lines = {"failure  board: not known to be", "The radio will not "}},
    {.changes = {{model, "Raspberry Pi 500"}, {"dev/mem", ""}},
     .lines = {"failure  board: Raspberry Pi 500, whose", "failure  /dev/mem: is missing"}},
    {.changes = {{model, "Raspberry Pi Compute Module 4"}},
     .lines = {"warning  board: Raspberry Pi Compute Module 4, on", "The radio should work.\n"}},
    {.changes = {{model, "Raspberry Pi 41"}, {config, ""}, {old_place, ""}},
     .lines = {"warning  board: Raspberry Pi 41 is not known", "warning  clock: the core clock, "}},
    {.changes = {{model, "A\x1b[2J Pi"}, {"sys/kernel/security/lockdown", "none [integrity]\n"}},
     .lines = {"failure  board: not a Raspberry Pi but \"A [2J Pi\": ",
               "failure  /dev/mem: the k"}},
    // SPI is off again, is on for others, for this one, with a pin; or that cannot be told.
    {.changes = {{spidev, "DIR"}, {config, "dtparam=spi\ndtparam=spi=off\ncore_freq=400"}},
     .lines = {no_spidev + put_line, too_fast + "12.5 MHz (core clock 400 MHz by core_freq in "}},
    {.changes = {{spidev, ""},
                 {config, "core_freq=320\n[pi5]\ndtparam=spi=on\n[gpio4=1]\ndtparam=spi"}},
     .lines = {no_spidev + put_line, runs_at + "10 MHz"}},
    {.changes = {{spidev, ""},
                 {config, "[none]\ncore_freq=500\n[pi4]\ncore_freq=250\ndtparam=a,spi\n"}},
     .lines = {is_on + "in /boot/firmware/config.txt: reboot; if"}},
    {.changes = {{spidev, ""},
                 {config, "[gpio4=1]\ndtparam=spi=on\n[all]\n[HDMI:0]\ncore_freq=500"}},
     .lines = {is_on + "below [gpio4=1], which may not apply here, in /boot",
               too_fast + "15.625 MHz (core clock 500 MHz by core_freq below [HDMI:0], which"}},
    {.changes = {{spidev, ""}, {config, "DIR"}},
     .lines = {no_spidev + ", and /boot/firmware/config.txt cannot be read" + put_line,
               too_fast + "15.625 MHz (core clock 500 MHz under load), above"}},
    // Slow enough by a setting in the old place, and by the model.
    {.changes = {{config, ""}, {old_place, "core_freq=250 #"}},
     .lines = {runs_at + "7.8125 MHz (core clock 250 MHz by core_freq in /boot/config.txt)"}},
    {.changes = {{config, "core_freq=99999"}, {model, "Raspberry Pi 2"}},
     .lines = {runs_at + "7.8125 MHz (core clock 250 MHz un"}},
    // The receiver and the programs.
    {.lines = {"failure  receiver: does  not\n"}, .answer = ""},
    {.changes = {{program, ""}, {"bin/kestrel", "\177ELF"}},
     .lines = {"warning  kestrel: not in PATH: "}},
    {.changes = {{program, "#!/bin/sh\n"}}, .lines = {kestrel + "is not a program: remove"}},
    {.changes = {{program, "EMPTY"}, {"usr/local/bin/kestrelctl", "\177ELF x.bin      1000001\n"}},
     .lines = {kestrel + "is empty: remove it and install the package",
               "failure  kestrelctl: /usr/local/bin/kestrelctl has stand-ins for images, wh"}},
};

int severity(const std::string& line) {
  return line.starts_with("failure  ") ? 2 : line.starts_with("warning  ") ? 1 : 0;
}

TEST(Doctor, names_what_each_change_to_a_healthy_system_breaks_and_nothing_else) {
  for (const auto& [changes, lines, answer] : cases) {
    auto files = changes;
    files.insert(healthy.begin(), healthy.end());
    const auto [status, output, questions] = examine(files, answer);
    for (const auto& line : lines) {
      EXPECT_NE(('\n' + output).find('\n' + line), std::string::npos) << line << '\n' << output;
    }
    const bool is_asked = output.find(" receiver: not asked after a failure") == std::string::npos;
    EXPECT_EQ(questions, is_asked ? 1 : 0) << output;
    std::ptrdiff_t troubles = is_asked ? 0 : -1;
    std::istringstream printed(output);
    for (std::string line; std::getline(printed, line);) troubles += severity(line) > 0 ? 1 : 0;
    EXPECT_EQ(troubles, std::ranges::count_if(lines, severity)) << output;
    EXPECT_EQ(status, severity(std::ranges::max(lines, {}, severity))) << output;
  }
}

// The same rubbish in place of every file: each line is a finding, short and printable.
TEST(Doctor, survives_garbage) {
  std::string noise = "[\x9b(|)]=,: \n[\n=\ndtparam=spi=spi,spi\ncore_freq=4294967296\n";
  while (noise.size() < 3'000'000) noise += "\xff\x1b[31m\x07\0"s + noise.substr(0, 100'000);
  for (const auto& rubbish : {noise, "\n"s, "DIR"s, "FIFO"s}) {
    auto files = healthy;
    for (auto& [path, content] : files) content = rubbish;
    const auto [status, output, questions] = examine(files, "answers");
    EXPECT_EQ(std::pair(status, questions), std::pair(2, 0));
    EXPECT_EQ(std::ranges::count(output, '\n'), 9) << output;
    const auto is_control = [](unsigned char c) { return (c < 0x20 && c != '\n') || c == 0x7F; };
    EXPECT_TRUE(std::ranges::none_of(output, is_control)) << output;
  }
}

}  // namespace
}  // namespace kestrelctl
