// SPDX-License-Identifier: GPL-3.0-or-later
//
// Whole runs of kestrelctl on the simulated board, beside those that README.md shows.
#include <unistd.h>

#include "shell.h"

namespace {

struct Kestrelctl : Shell {
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "the receiver is root's";
  }
};

TEST_F(Kestrelctl, EndsWithAStatusThatSaysWhatHappened) {
  const Shell_run runs[]{
      {"ctl", 64, "A subcommand is required"},
      {"ctl statoins", 64, "Do you mean stations?"},
      {"ctl play pop", 4, "There is no scan yet: run kestrelctl scan."},
      {"ctl next", 4, "There are no presets and no stations yet."},
      {"ctl play --last", 4, "Nothing has been played yet."},
      {"ctl status", 0, "The receiver is off.\n"},
      {"ctl scan --city 'Bad Lindwil' | tail -n 1", 0, "74 stations on 41 frequencies, kept in "},
      {"grep -l 'Bad Lindwil' state/scans/*", 0, "ensemblescan_"},
      {"printf '174928\\r\\n227360\\n' >f; ctl scan -y f", 0, "\n12 stations on 2 frequencies"},
      {"ctl scan --fm", 0, " 98.50 MHz   60 dBuV  SEEGRUND\n"},
      {"sed -i s/Morgenrot/Nebelgrau/ state/scans/e*; ctl scan | grep -E '^(new|lost|changed) '", 0,
       "changed  Morgenrot, 5A\n"},
      {"ls state/scans/ensemble* | wc -l", 0, "3\n"},
      {"ctl stations | awk 'length > 80' | wc -l", 0, "0\n"},
      {"ctl play pop --volume 9", 0, "Playing Seegrund Pop, 12C, 62 dBuV, SNR 19\n"},
      {"ctl play HOHENWEG", 0, "Playing Höhenweg, 12A"},
      {"ctl play Morgenrot", 0, "Playing Morgenrot, 5A"},
      {"ctl play radio felsental1 --dry-run", 0, "sudo kestrel -f 33 -e 17334 -c 13 -p\n"},
      {"ctl play abendstern --dry-run", 1, "cannot be played from kestrel's command line"},
      {"ctl play premiere", 5, "Premiere Ton cannot be played: scrambled"},
      {"ctl play morg", 0, "Playing Morgenrot"},
      {"ctl play hochried 1 --block 5c", 0, "Playing Hochried 1, 5C"},
      {"ctl play velrose", 3, "Velrose"},
      {"ctl play moregnrot", 4, "Do you mean Morgenrot?"},
      {"ctl play $(head -c 10000 /dev/zero | tr '\\0' s)", 4, "ss"},
      {"ctl play", 64, "Which station?"},
      {"ctl play --fm nan", 64, "--fm"},
      {"ctl play pop --volume 64", 64, "--volume"},
      {"ctl preset set 3 hohenweg; ctl preset set 1 --fm 98.5; ctl preset", 0,
       "  1  SEEGRUND, 98.50 MHz\n  3  Höhenweg, 12A\n"},
      {"ctl play 3", 0, "Playing Höhenweg"},
      {"ctl next", 0, "Playing SEEGRUND, 98.50 MHz"},
      {"ctl previous", 0, "Playing Höhenweg"},
      {"ctl preset remove 2", 4, "There is no preset 2."},
      {"ctl volume", 0, "9\n"},
      {"ctl volume +99", 0, "63\n"},
      {"ctl volume -5", 0, "58\n"},
      {"ctl volume loud", 64, "The volume is a number"},
      {"ctl off; ctl volume; ctl status", 0, "58\nThe receiver is off.\n"},
      {"KESTREL_SIM_FAULT=all_ones ctl status", 1,
       "No receiver answers. Is the board seated well?"},
      {"KESTREL_SIM_FAULT=all_zeros ctl play --last", 1, "The receiver does not answer."},
      {"ctl play --last", 0, "Playing Höhenweg"},
      {"ctl status", 0, "Volume     58\n"},
      {"ctl status --json | tr -d ' \\n'", 0, "\"station\":\"Höhenweg\",\"service_id\":18946,"},
      {"ctl log --count 8 --site home -o log --textfile log.prom; grep -c '\"text\":' log", 0,
       "1\n"},
      {"grep -c '\"site\":\"home\".*\"block\":\"12A\".*\"rssi_dbuv\":' log", 0, "8\n"},
      {"cat log.prom", 0, "\nkestrel_received{site=\"home\",block=\"12A\""},
      {"ctl stop && ctl watch --count 1 --every 9", 0, "  12A, 223.936 MHz\n"},
      {"touch board/antenna_out; ctl watch --count 1", 0, "12A, 223.936 MHz, no signal\n"},
      {"ctl play pop", 5, "No ensemble on 12C: "},
      {"rm board/antenna_out; ctl watch --meter --count 1", 0, "] "},
      {"ctl watch --json --count 2 | grep -c '\"received\":'", 0, "2\n"},
      {"echo '{' >state/settings.json; ctl volume; ls state", 0, "settings.json.damaged"},
      {"rm board/dev/spidev0.0; ctl status", 1, "SPI is switched off: "},
  };
  expect_runs(runs);
}

TEST_F(Kestrelctl, AsksForRootAtTheBoardOnly) {
  const std::string user = "setpriv --reuid 65534 --clear-groups '" KESTRELCTL_PROGRAM "' ";
  EXPECT_EQ(run(user + "status"), "kestrelctl: The receiver is root's. Did you forget sudo?\n");
  EXPECT_EQ(status_, 1);
  run("chmod 755 .; ctl scan");
  EXPECT_NE(run(user + "stations").find("Seegrund Pop"), std::string::npos);
}

TEST_F(Kestrelctl, LetsEveryoneHaveATurn) {
  run("ctl scan");
  const auto together = run(
      "for name in pop tannhorn morgenrot hohenweg; do ctl play $name & done; wait; ctl status");
  EXPECT_EQ(status_, 0) << together;
  for (const auto* name : {"Seegrund Pop", "Tannhorn", "Morgenrot", "Höhenweg"}) {
    EXPECT_NE(together.find(std::string("Playing ") + name + ","), std::string::npos) << together;
  }
  // A program of kestrel's name holds no lock.
  EXPECT_NE(run("cp /bin/sleep kestrel; ./kestrel 3 & sleep 0.1; ctl status")
                .find("waiting for another kestrel to end\nFirmware"),
            std::string::npos);
}

TEST_F(Kestrelctl, StopsWhenItIsTold) {
  // What was found until then is kept, and the board is left so that the next run goes well.
  const auto scanned =
      run("export KESTREL_SIM_CLOCK=real; SECONDS=0\n"
          "timeout --preserve-status -s INT 6 '" KESTRELCTL_PROGRAM
          "' scan; status=$?\n"
          "test $SECONDS -le 7 && exit $status");
  EXPECT_EQ(status_, 130) << scanned;
  EXPECT_NE(scanned.find("2 stations on "), std::string::npos) << scanned;
  EXPECT_NE(run("ctl play morgenrot").find("Playing Morgenrot"), std::string::npos);
  run("export KESTREL_SIM_CLOCK=real; timeout --preserve-status -s TERM 0.5 '" KESTRELCTL_PROGRAM
      "' watch --every 60");
  EXPECT_EQ(status_, 0);
}

}  // namespace
