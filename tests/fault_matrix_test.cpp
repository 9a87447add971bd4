// SPDX-License-Identifier: GPL-3.0-or-later
//
// Faults at the frames of four runs of the program. Whatever goes wrong, a run ends with result 0,
// within the waits that one fault can cost, with chip select released and nothing printed that it
// does not know; its scan file is whole or not there, and the board boots again.
//
// The process forks at each frame, and its child goes on with the fault. A crash or a hang is then
// the child's own, and no run's beginning is repeated.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <iostream>
#include <set>
#include <span>

#include "cli/run.h"
#include "directory.h"
#include "support.h"

namespace {

// Where each run takes many times as long, each frame is struck with one of this many faults.
#ifndef KESTREL_STRIKE_ONE_OF
#define KESTREL_STRIKE_ONE_OF 1
#endif

using namespace std::chrono_literals;
using sim::Fault_kind;

constexpr Fault_kind kinds[]{
    Fault_kind::no_cts,        Fault_kind::late_cts,        Fault_kind::command_error,
    Fault_kind::arbiter_error, Fault_kind::dropped_write,   Fault_kind::dropped_read,
    Fault_kind::all_ones,      Fault_kind::non_recoverable, Fault_kind::all_zeros,
    Fault_kind::reset,         Fault_kind::garbage,         Fault_kind::flipped_byte};

// What a failure prints that a clean run does not.
constexpr char failures_say[] =
    "Si468x is not booted up, no firmware loaded. Please use the command boot first.\n"
    "Could not power up the Si468x\nPatch not transmitted successfully\n"
    "Firmware not transmitted successfully\nBoot up failed\nCould not tune to frequency\n"
    "Could not start service\nError getting service data \nError setting frequency list.\n]\n\n";

// One fault can cost one wait of each kind that a run has. A failed load waits less, and ends it.
constexpr auto on_wire = 200us;                            // more than a poll's bytes take
constexpr auto cts_wait = 1'227'500us + 50 * on_wire;      // 50, 1050, ... 49,050 us
constexpr auto tune_wait = 100 * (100ms + on_wire);        // for seek/tune complete
constexpr auto acquisition_wait = 10 * (200ms + on_wire);  // for an ensemble
constexpr auto list_wait = 50 * (200ms + on_wire);         // for its service list

struct Command_line {
  const char* name;
  const char* options;
  const char* prepare;  ///< options of a run before it, on a booted receiver; null: a new board
  const char* boot;     ///< options of a run that boots the firmware that this one needs
  std::chrono::microseconds fault_costs;

  friend void PrintTo(const Command_line& line, std::ostream* out) { *out << line.options; }
};
const Command_line command_lines[]{
    {"Dab", "-b D -f 33 -e 17333 -c 12 -p -l 50 -i -d -j -g -D -n -t", nullptr, "-b D",
     cts_wait + tune_wait + acquisition_wait},
    {"Fm", "-b F -F 98500 -x -X -r", nullptr, "-b F", cts_wait + tune_wait},
    {"List", "-o 1 -y list", "-l 20", "-b D", cts_wait},
    {"Scan", "-u", "-y list", "-b D", cts_wait + tune_wait + list_wait},
};

// Ensembles, of which one is weak and late, one never acquired and one without a time; a carrier;
// noise.
constexpr char frequencies[] = "178352\n188928\n190640\n197648\n220352\n222064\n227360\n229072\n";
constexpr std::string_view answers = "7\nTower\n10115\nBerlin\nX\n0\n52.5\n13.4\n";
constexpr char scan_file[] = "ensemblescan_10115_Berlin.json";

/// The lines of an output, with '#' for a number and without the words that a station, a table of
/// names or a signal's strength put in. Headers that may follow a text without a line end begin a
/// line.
std::set<std::string> shape(std::string text) {
  const std::string label = "\"Label\": \"", after_label = "\",\n\"ComponentList\"";
  for (auto at = text.find(label); at != std::string::npos; at = text.find(label, at + 1)) {
    const auto begin = at + label.size();
    text.erase(begin, text.find(after_label, begin) - begin);
  }
  for (const auto* head : {"Event status ---", "Error getting", "\"DigitalServiceList\""}) {
    if (const auto at = text.find(head); at != std::string::npos) text.insert(at, "\n");
  }
  std::set<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    for (const auto* cut : {"PTY Meaning", "Firmware image running", "Scanning frequency"}) {
      if (line.starts_with(cut)) line = cut;
    }
    if (line.starts_with('}') && line != "},{" && line != "}]") line = "}";
    std::string shaped;
    for (const char c : line) {
      const bool is_digit = c >= '0' && c <= '9';
      if (!is_digit || !shaped.ends_with('#')) shaped += is_digit ? '#' : c;
    }
    lines.insert(shaped);
  }
  return lines;
}

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

class Fault_matrix : public testing::TestWithParam<Command_line>,
                     protected Directory,
                     public sim::Spi_device {
 protected:
  /// For each opcode, and after these each kind of fault: was a boot tried after it? The children
  /// share it.
  using Booted = std::bitset<256 + 16>;

  Fault_matrix() {
    if (booted_ == MAP_FAILED) std::abort();
    enter();
    write("list", frequencies);
  }
  ~Fault_matrix() override {
    sim::power_off();
    munmap(booted_, sizeof *booted_);
  }

  void select() override {
    is_selected_ = true;
    if (!opcodes_.empty() && !fault_ && !is_repetition(frame_)) strike();
    ++frame_;
    injector_->select();
  }
  std::uint8_t exchange(std::uint8_t mosi) override { return injector_->exchange(mosi); }
  void deselect() override {
    is_selected_ = false;
    injector_->deselect();
  }
  void reset_line(bool high) override { injector_->reset_line(high); }

  /// One run of the program with `options`; its output.
  std::string run_program(const std::string& options) {
    renew_streams();
    before_.clear();
    const int result = with_arguments(options, run);
    const auto output = printed_so_far();
    dup2(standard_output_, STDOUT_FILENO);
    EXPECT_EQ(result, 0);
    return output;
  }
  /// The run of this test. Only with the opcodes of a clean run's frames there are faults.
  std::string run_on_new_board(const Bytes& opcodes) {
    sim::power_on({});
    injector_.emplace(sim::board().receiver, std::vector<sim::Fault>{});
    sim::attach(*this);
    if (GetParam().prepare != nullptr) {
      sim::set_booted(true);
      (void)run_program(GetParam().prepare);
    }
    std::filesystem::remove(scan_file);
    sim::clear_events();
    start_ = sim::now();
    frame_ = 0;
    opcodes_ = opcodes;
    return run_program(GetParam().options);
  }

  /// In the middle of many frames with the same command, as those that load an image or wait for a
  /// service list. Few of them are struck.
  [[nodiscard]] bool is_repetition(std::size_t frame) const {
    constexpr std::size_t before = 6, after = 2;
    if (frame < before || frame + after >= opcodes_.size() || frame % 64 == 0) return false;
    const auto around = std::span(opcodes_).subspan(frame - before, before + 1 + after);
    return std::ranges::all_of(around, [&](auto opcode) { return opcode == opcodes_[frame]; });
  }

  /// Fork once for each fault. In a child this returns, with the fault at work.
  void strike() {
    std::fflush(stdout);
    auto turn = frame_;
    for (const auto kind : kinds) {
      if (turn++ % KESTREL_STRIKE_ONE_OF != 0) continue;
      constexpr std::uint32_t first_data_byte = 5;  // where counts and lengths are
      const auto seed = static_cast<std::uint32_t>(frame_) + 1;
      const auto number = kind == Fault_kind::flipped_byte ? first_data_byte
                          : kind == Fault_kind::garbage    ? seed
                                                           : 0;
      const auto child = fork();
      if (child == 0) {
        alarm(120);  // seconds of real time, many under the sanitizers on a busy machine
        fault_ = {.kind = kind, .nth = 0, .number = number};
        struck_ = opcodes_[frame_];
        injector_.emplace(sim::board().receiver, std::vector{*fault_});
        renew_streams();
        return;
      }
      int outcome = 0;
      waitpid(child, &outcome, 0);
      ++children_;
      if (outcome != 0) failures_ << sim::name_of(kind) << " at frame " << frame_ << '\n';
    }
  }

  /// New standard streams for what comes now: a child shares none with its parent.
  void renew_streams() {
    before_ = printed_so_far();
    if (output_ != STDOUT_FILENO) close(output_);
    output_ = memfd_create("output", 0);
    const int input = memfd_create("answers", 0);
    EXPECT_EQ(::write(input, answers.data(), answers.size()), std::ssize(answers));
    dup2(output_, STDOUT_FILENO);
    dup2(input, STDIN_FILENO);
    close(input);
    std::rewind(stdin);
  }
  [[nodiscard]] std::string printed_so_far() const {
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(std::max<off_t>(lseek(output_, 0, SEEK_END), 0)), 0);
    return pread(output_, text.data(), text.size(), 0) < 0 ? "" : before_ + text;
  }

  void judge(const std::string& output) const;
  void boot_again();

  std::string clean_;
  std::chrono::nanoseconds clean_time_{}, start_{};
  Bytes opcodes_;  ///< for each frame of the clean run, of the command that it is or reads about
  std::size_t frame_ = 0, children_ = 0;
  std::ostringstream failures_;      ///< the children that failed
  std::optional<sim::Fault> fault_;  ///< in a child
  std::uint8_t struck_ = 0;          ///< in a child: the opcode of the frame that it struck
  bool is_selected_ = false;

 private:
  Booted* booted_ = static_cast<Booted*>(
      mmap(nullptr, sizeof(Booted), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  int standard_output_ = dup(STDOUT_FILENO), output_ = STDOUT_FILENO;
  std::string before_;
  std::optional<sim::Fault_injector> injector_;
};

/// What has to be true when a child's run has ended.
void Fault_matrix::judge(const std::string& output) const {
  EXPECT_FALSE(is_selected_);
  EXPECT_LE(sim::now() - start_, clean_time_ + GetParam().fault_costs);

  // A failed load stops SPI0, and the status that is read then reaches nobody.
  const bool has_failed_load = output.find("not transmitted successfully") != std::string::npos;
  std::size_t unheard = 0;
  for (const auto& violation : sim::violations()) {
    const auto here = count(violation, "a frame reached nobody");
    unheard += here;
    EXPECT_GT(here + count(violation, ") refused: ") + count(violation, ") lost: "), 0U)
        << violation;
  }
  EXPECT_EQ(unheard, has_failed_load ? 1U : 0U);

  const auto known = shape(clean_ + failures_say);
  for (const auto& line : shape(output)) EXPECT_TRUE(known.contains(line)) << line;

  const auto document = content(scan_file);
  const bool is_whole = document.starts_with("{\"content\": ") && document.ends_with("\n]}");
  EXPECT_EQ(is_whole, output.ends_with("Thank you\n")) << document;
  EXPECT_EQ(count(document, "\"EnsemleNo\": "), count(output, "Scanning frequency: ")) << document;
  std::filesystem::remove(scan_file);
}

/// A clean boot on the board as it is now, once for each kind of fault and for each command that
/// one struck.
void Fault_matrix::boot_again() {
  const auto kind = static_cast<std::size_t>(fault_->kind);
  if (booted_->test(256 + kind) && booted_->test(struck_)) return;
  booted_->set(256 + kind).set(struck_);
  sim::clear_events();
  EXPECT_TRUE(run_program(GetParam().boot).ends_with("\nBoot up successful\n\n"));
  EXPECT_EQ(sim::violations(), Lines{});
  EXPECT_FALSE(is_selected_);
}

TEST_P(Fault_matrix, EndsEveryRunInOrderAndLeavesABoardThatBoots) {
  if (geteuid() != 0) GTEST_SKIP() << "a run needs root";
  clean_ = run_on_new_board({});
  clean_time_ = sim::now() - start_;
  EXPECT_EQ(sim::violations(), Lines{});
  EXPECT_FALSE(is_selected_);
  Bytes opcodes;
  std::uint8_t opcode = 0;
  for (const auto& event : sim::events()) {
    if (!event.is_frame()) continue;
    if (event.sent[0] != 0) opcode = event.sent[0];
    opcodes.push_back(opcode);
  }
  ASSERT_EQ(opcodes.size(), frame_);
  const auto output = run_on_new_board(opcodes);
  if (fault_) {
    judge(output);
    boot_again();
    _exit(HasFailure() ? 1 : 0);
  }
  EXPECT_EQ(failures_.str(), "");
  EXPECT_EQ(output, clean_);
  EXPECT_GT(children_, 100U / KESTREL_STRIKE_ONE_OF);
}

INSTANTIATE_TEST_SUITE_P(Of, Fault_matrix, testing::ValuesIn(command_lines),
                         [](const auto& line) { return line.param.name; });

}  // namespace
