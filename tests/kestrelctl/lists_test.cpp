// SPDX-License-Identifier: GPL-3.0-or-later
//
// Whole runs of the subcommands that need no receiver: stations, report and frequencies.
#include "shell.h"

namespace {

constexpr char scan_a[] =
    R"({"ensembleList": [{"EnsemleNo": 0, "DigradStatus": {"rssi": 40, "tune_freq": 174928},
"DigitalServiceList": {"ServiceList": [{"ServId": 6, "Label": "First", "ComponentList": [{"comp_ID": 1}]}]}},
{"EnsemleNo": 1, "DigradStatus": {"valid": 1, "tune_freq": 176640}},
{"EnsemleNo": 2, "DigradStatus": {"valid": 0, "tune_freq": 178352}},
{"EnsemleNo": 33, "DigradStatus": {"rssi": 62, "tune_freq": 227360}, "DigitalServiceList": {"ServiceList": [
{"ServId": 17333, "Label": "Höhenweg's", "SICharset": 15, "ComponentList": [{"comp_ID": 12}]},
{"ServId": 8, "Label": "Sea</script><b>", "ComponentList": [{"comp_ID": 2}]}]},
"ensembleTime": {"year": 2024, "month": 3, "day": 5}}]})";

struct Lists : Shell {
  Lists() { write("a.json", scan_a); }
};

TEST_F(Lists, EndWithAStatusThatSaysWhatHappened) {
  const Shell_run runs[]{
      {"ctl stations", 1, "there is no scan yet: make one with sudo kestrelctl scan"},
      {"ctl stations missing.json", 1, "kestrelctl: missing.json: No such file or directory\n"},
      {"ctl stations .", 1, "kestrelctl: .: Is a directory\n"},
      {"echo [ >cut; ctl stations cut", 1, "cut: is empty or ends too early: the scan did not"},
      {"ctl stations cut a.json", 0, "kestrelctl: cut: is empty or ends too early"},
      {"ctl stations cut a.json", 0, "\nFirst "},
      {"ctl stations cut missing.json", 1, "there is no scan that can be read"},
      {"head -c 17000000 /dev/zero >zeros; ctl stations zeros", 1, "has more than 16 MiB"},
      {"ctl stations a.json --filter hohen", 0, "Höhenweg's  12C"},
      {"ctl stations a.json --filter other", 4, "kestrelctl: no station matches\n"},
      {"ctl stations a.json --filter other --json", 4, "[]\n"},
      {"ctl stations a.json --long", 0, "17333  0x43B5"},
      {"ctl stations a.json >/dev/full", 1, "kestrelctl: the output could not be written"},
      {"ctl stations a.json --json --csv", 64, ""},
      // Without FILE the newest scan by its own time, whatever that of the file.
      {"sed s/2024/2023/ a.json | sed s/First/Older/ >ensemblescan_2.json\n"
       "cp a.json ensemblescan_1.json; touch -d 2000-01-01 ensemblescan_1.json\n"
       "ctl stations --filter ir",
       0, "First"},
      {"mkdir -p state/scans; sed s/First/Stored/ a.json >state/scans/ensemblescan_x.json\n"
       "ctl stations --filter st",
       0, "Stored  5A"},
      {"ctl report a.json -o a.json", 1, "a.json: is one of the scans, and is left alone"},
      {"ln -s a.json l; ctl report a.json -o l", 1, "l: is one of the scans"},
      {"echo kept >k; ln -s k m; ctl report a.json -o m; cat k", 0, "kept\n"},
      {"ctl report a.json -o page && stat -c %a page", 0, "644"},
      {"ctl report a.json -o - | grep -c 'Sea.u003c/script>.u003cb>'", 0, "1\n"},
      {R"(ctl report a.json -o - | grep -cF 'play \"Höhenweg'"'"'s\"')", 0, "1\n"},
      {R"(sed "s/First/A!'B/" a.json >b; ctl report b -o - | grep -cF "play 'A!'\\\\''B'" )", 0,
       "1\n"},
      {"ctl frequencies a.json -o /no/list", 1, "kestrelctl: /no/list: No such file"},
      {"ctl frequencies a.json 2>/dev/null", 0, "178352\n174928\n176640\n227360\n"},
      {"ctl frequencies a.json", 0, "; 178352 kHz only fills index 0"},
      {"echo 174928 >f; echo 5A >>f; ctl scan -y f", 1, "f: line 2 is not a frequency in kHz"},
      {"yes 174928 | head -n 49 >f; ctl scan -y f", 1, "f has more than 48 frequencies"},
      {": >f; ctl log --survey -y f", 1, "kestrelctl: f is empty"},
      {"ctl log -y f", 64, ""},
      {"sed s/174928/178352/ a.json | ctl frequencies /dev/stdin 2>/dev/null", 0,
       "176640\n178352\n227360\n"},
  };
  expect_runs(runs);
}

}  // namespace
