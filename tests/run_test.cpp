// SPDX-License-Identifier: GPL-3.0-or-later
//
// Whole runs of the program on the simulated board, each a process of its own, beside those that
// README.md shows. The board lives in a directory that goes with the test.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <tuple>

#include "directory.h"
#include "support.h"

namespace {

class Whole_run : public testing::Test, protected Directory {
 protected:
  Whole_run() { std::filesystem::permissions(path(""), std::filesystem::perms::all); }
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "a run needs root";
  }
  /// Have the shell run the program with `options`, through the command `prefix`; `then` follows.
  void run(const std::string& options, const std::string& prefix = "timeout 20",
           const std::string& then = "") {
    const auto command = "cd '" + path("") +
                         "' || exit; env -i --default-signal=INT KESTREL_SIM_DIR=\"$PWD/board\" "
                         "KESTREL_SIM_TRACE=\"$PWD/trace\" KESTREL_SIM_CLOCK=virtual " +
                         prefix + " '" KESTREL_SIM_PROGRAM "' " + options + " >out 2>err " + then;
    status_ = WEXITSTATUS(std::system(command.c_str()));
    out_ = content("out");
    err_ = content("err");
  }
  void expect_playing() {
    run("-b D -f 33 -e 17333 -c 12 -p -l 50");
    EXPECT_EQ(behind_notice(out_),
              "SPI bus enabled.\n\nBoot up successful\n\nTuned.\n\nSetting volume to 50\n\n");
    EXPECT_EQ(err_, "");
    EXPECT_EQ(status_, 0);
  }

  int status_ = -1;
  std::string out_, err_;
};

TEST_F(Whole_run, PlaysOnAndIsFoundByTheNextRun) {
  expect_playing();
  run("-i -d -D");
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(err_, "");
  for (const auto* part : {"\n\nSPI bus enabled.\n\nChip info ---",
                           "\nPowerup state:                              3\n",
                           "\nFirmware image running the sysstate CMD:    DAB\n",
                           "\nEnsemble acquired:                          1\n",
                           "\nTune Freq.:                                 227360\n",
                           "\nTune index:                                 33\n", "Seegrund Pop"}) {
    EXPECT_NE(out_.find(part), std::string::npos) << part << out_;
  }
  std::filesystem::remove(path("board/dev/spidev0.0"));
  run("-i");
  EXPECT_TRUE(behind_notice(out_).starts_with("Error initializing SPI bus.")) << out_;
}

TEST_F(Whole_run, KilledAtAnyMomentLeavesABoardForTheNextRun) {
  // The trace goes through a pipe too short for the lines of a run, so that the program waits for
  // us near the line at which it is to be killed: in the reset, between the pieces of a frame, in a
  // scan.
  // Options, the line, the signal, and a line that the run would have come to.
  const std::tuple<const char*, int, int, int> deaths[]{
      {"-b D", 18, SIGKILL, 290}, {"-b D", 22, SIGTERM, 290},  {"-b D", 30, SIGINT, 290},
      {"-b D", 60, SIGKILL, 290}, {"-b D", 180, SIGTERM, 290}, {"-u", 100, SIGINT, 800},
      {"-u", 600, SIGKILL, 800}};
  expect_playing();
  for (const auto& [options, line, signal, last_line] : deaths) {
    std::filesystem::remove(path("trace"));
    ASSERT_EQ(mkfifo(path("trace").c_str(), 0600), 0);
    run(options, "", "</dev/null & echo $! >pid");
    std::FILE* const trace = std::fopen(path("trace").c_str(), "r");
    ASSERT_GE(fcntl(fileno(trace), F_SETPIPE_SZ, 4096), 4096);
    int seen = 0;
    while (seen < line) seen += std::fgetc(trace) == '\n' ? 1 : 0;
    ASSERT_EQ(kill(std::stoi(content("pid")), signal), 0);
    for (int c = 0; c != EOF; seen += c == '\n' ? 1 : 0) c = std::fgetc(trace);
    EXPECT_LT(seen, last_line) << "it had ended already";
    std::fclose(trace);
    std::filesystem::remove(path("trace"));
    expect_playing();
  }
}

TEST_F(Whole_run, GoesOnWithoutItsStandardStreams) {
  run("-k");
  std::ofstream(path("board/proc/device-tree/model")) << "Raspberry Pi Zero";  // which it warns of
  for (const auto* streams : {">&-", ">/dev/full", "<&-", "2>&-", "<&- >&- 2>&-"}) {
    run("-b D -i -d", "timeout 20", streams);
    EXPECT_EQ(status_, 0) << streams;
    const auto trace = content("trace");  // the first file that it opens
    EXPECT_EQ(trace.find("Starting") & trace.find("Guessing"), std::string::npos) << streams;
    run("-i");
    EXPECT_NE(out_.find("Powerup state:                              3\n"), std::string::npos);
    // What would have been printed must not get into the file, nor the file into what is printed.
    run("-u", "timeout 20", streams);
    EXPECT_EQ(status_, 0) << streams;
    const auto document = content("ensemblescan__.json");
    EXPECT_TRUE(document.starts_with("{\"content\": \"FullStationScan\"")) << streams;
    EXPECT_TRUE(document.ends_with("]}")) << streams;
    std::filesystem::remove(path("ensemblescan__.json"));
  }
}

TEST_F(Whole_run, OfAnotherUserStopsBeforeTheBus) {
  run("-b D", "setpriv " KESTREL_OTHER_USER " --regid 65534 --clear-groups");
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(behind_notice(out_), "Must be called as root. Did you forget sudo?\n");
  EXPECT_EQ(err_, "");
  EXPECT_FALSE(std::filesystem::exists(path("board")));
  EXPECT_FALSE(std::filesystem::exists(path("trace")));
}

TEST_F(Whole_run, LeavesHelpAndUsageErrorsToArgp) {
  // Options, exit status, how the output begins, and what is in the error output.
  const std::tuple<const char*, int, std::string, const char*> cases[]{
      {"--help", 0, "Usage: kestrel-sim [OPTION...]", ""},
      {"--version", 0, "kestrel 1.4.0\n", ""},
      {"-l", 64, "", "kestrel-sim: option requires an argument -- 'l'\n"},
      {"--nonsense", 64, "", "kestrel-sim: unrecognized option '--nonsense'\n"},
      {"-l 5 stray", 64, "", "kestrel-sim: Too many arguments\n"}};
  for (const auto& [options, status, begin, error] : cases) {
    run(options);
    EXPECT_EQ(status_, status) << options;
    EXPECT_TRUE(out_.starts_with("Starting...kestrel DAB radio client\nkestrel 1.4.0\n" + begin));
    EXPECT_EQ(out_.find("Please note:"), std::string::npos) << out_;
    EXPECT_NE(err_.find(error), std::string::npos) << err_;
  }
}

}  // namespace
