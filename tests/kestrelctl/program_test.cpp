// SPDX-License-Identifier: GPL-3.0-or-later
//
// Whole runs of kestrelctl, beside those that README.md shows: with a kestrel that is a script, and
// with kestrel-sim.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tuple>

#include "../directory.h"

namespace {

constexpr char scan_a[] =
    R"({"ensembleList": [{"EnsemleNo": 0, "DigradStatus": {"rssi": 40, "tune_freq": 174928},
"DigitalServiceList": {"ServiceList": [{"ServId": 6, "Label": "First", "ComponentList": [{"comp_ID": 1}]}]}},
{"EnsemleNo": 1, "DigradStatus": {"valid": 1, "tune_freq": 176640}},
{"EnsemleNo": 2, "DigradStatus": {"valid": 0, "tune_freq": 178352}},
{"EnsemleNo": 33, "DigradStatus": {"rssi": 62, "tune_freq": 227360}, "DigitalServiceList": {"ServiceList": [
{"ServId": 17333, "Label": "Seegrund Pop", "ComponentList": [{"comp_ID": 12, "ASCTyDSCTy": 63}]},
{"ServId": 8, "Label": "Seegrund</b><i>", "ComponentList": [{"comp_ID": 2}]}]}}]})";

/// A kestrel that counts its runs and says what the file `says` has for each.
constexpr char script[] = R"bash(#!/bin/bash
exec 9>>running; flock -n 9 || echo "two at once" >>clashes
echo run >>runs
printf 'Starting...\nSPI bus enabled.\n\n%b' "$(sed -n "$(wc -l <runs)p" says)"
)bash";

class Kestrelctl : public testing::Test, protected Directory {
 protected:
  Kestrelctl() {
    write("a.json", scan_a);
    write("kestrel", script);
    std::filesystem::permissions(path("kestrel"), std::filesystem::perms::owner_all);
  }
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "kestrel needs root";
  }

  /// Have the shell run `command`, in which `ctl` is kestrelctl with the script for a kestrel; what
  /// it printed on both streams.
  std::string run(const std::string& command) {
    write("run", R"bash(
export KESTREL=./kestrel KESTREL_SIM_CLOCK=virtual KESTREL_SIM_DIR="$PWD/board"
ctl() { local name="$1"; shift; timeout 20 ")bash" KESTRELCTL_PROGRAM R"bash(" "$name" "$@"; }
locked() { ctl "$@" --lock ./lock; }
exec >out 2>&1
)bash" + command);
    status_ = WEXITSTATUS(std::system(("cd '" + path("") + "' && bash run").c_str()));
    return content("out");
  }

  int status_ = -1;
};

TEST_F(Kestrelctl, EndsWithAStatusThatSaysWhatHappened) {
  // The command, its status, and a part of what is printed.
  const std::tuple<const char*, int, const char*> rows[]{
      {"ctl play seegrund a.json", 3, "'seegrund' can be any of these:\nName"},
      {"ctl play sea a.json", 4, "no station is called 'sea'"},
      {"ctl play first a.json", 1,
       "First cannot be played: "},
      {"ctl play 'grund p' a.json -n -l 20", 0, "sudo ./kestrel -f 33 -e 17333 -c 12 -p -l 20\n"},
      {"ctl play pop a.json --block 5A", 4, "no station"},
      {"ctl play pop missing.json", 1, "kestrelctl: missing.json: No such file or directory\n"},
      {"ctl play pop .", 1, "kestrelctl: .: is a directory\n"},
      {"ctl watch --every nan", 64, "--every"},
      {"ctl", 64, "A subcommand is required"},
      {"ctl play x a.json -l 64", 64, "--level"},
      {"locked play pop a.json --kestrel /bin/false", 1, "/bin/false ended with status 1"},
      {"locked play pop a.json --kestrel /no/kestrel", 1, "cannot start /no/kestrel"},
      {"locked play pop a.json --kestrel /bin/echo", 1, "this is no kestrel: it printed '-f 33"},
      {"locked play pop a.json --kestrel '" KESTREL_SIM_PROGRAM "'", 1,
       "kestrelctl: the receiver is not booted: run kestrel -b D"},
      {"echo Could not start service >says; locked play pop a.json", 1, "Could not start service"},
      {"rm runs; echo Tuned. >says; locked play pop a.json -l 9", 0, "Tuned."},
      {"ln -s a.json l; ctl play pop a.json --lock l", 1, "cannot open the lock file l: "},
      {"setpriv --reuid 65534 --clear-groups '" KESTRELCTL_PROGRAM "' play pop <a.json /dev/stdin",
       1, "kestrel must run as root"},
  };
  for (const auto& [command, status, expected] : rows) {
    const auto printed = run(command);
    EXPECT_EQ(status_, status) << command << '\n' << printed;
    EXPECT_NE(printed.find(expected), std::string::npos) << command << '\n' << printed;
  }
}

TEST_F(Kestrelctl, WatchesAndShowsChangesAlone) {
  write("says",
        "Song one\nSong one\n\nSong \\033[2J two\nError getting service data \\n\nSong three\n");
  EXPECT_EQ(
      run("locked watch --every 0.1 --count 6 | sed 's/^[-0-9]*T[0-9:]*Z//'"),
      "  Song one\n  Song  [2J two\n  error: the receiver gave no service data\n  Song three\n");
  write("says", "Head ---\\nRSSI: 62\\nSNR:   19\\n\nHead ---\\nRSSI: 60\\nSNR:   19\\n\n");
  std::filesystem::remove(path("runs"));
  EXPECT_EQ(run("locked watch --reception --every 0.1 --count 2 | sed 's/^[-0-9]*T[0-9:]*Z//'"),
            "  RSSI: 62\n  SNR: 19\n  RSSI: 62 -> 60\n");
  std::filesystem::remove(path("runs"));
  EXPECT_EQ(run("locked watch --fm --json --every 0.1 --count 2 | sed 's/Z.*RSSI/ RSSI/; "
                "s/2[-0-9]*T[0-9:]*//'"),
            "{\"time\":\" RSSI\":62,\"SNR\":19}\n{\"time\":\" RSSI\":60}\n");
  // Ctrl-C lets the run that is under way end.
  const auto printed = run("timeout --preserve-status -s INT 0.5 '" KESTRELCTL_PROGRAM
                           "' watch --every 60 --lock ./lock");
  EXPECT_TRUE(printed.starts_with("kestrelctl: nothing yet; ")) << printed;
  EXPECT_EQ(status_, 0);
}

TEST_F(Kestrelctl, NeverRunsTwoAtOnceAndSaysThatItWaits) {
  write("says", "Tuned.\\n\nTuned.\\n\nTuned.\\n\n");
  const auto printed =
      run("sed -i '$a sleep 1.3' kestrel; for i in 1 2; do locked play pop a.json & done; wait");
  EXPECT_NE(printed.find("kestrelctl: waiting for another kestrel to end\n"), std::string::npos);
  EXPECT_EQ(content("runs"), "run\nrun\n");
  EXPECT_EQ(content("clashes"), "");
}

}  // namespace
