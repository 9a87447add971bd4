// SPDX-License-Identifier: GPL-3.0-or-later
//
// Faults at every frame of four runs of the program. Whatever goes wrong, a run ends with result 0,
// within the waits that one fault can cost, with chip select released and nothing printed that it
// does not know; its scan file is whole or not there, and the board boots again.
#include <iostream>
#include <set>

#include "directory.h"
#include "forked_runs.h"

namespace {

// Where each run takes many times as long, each frame is struck with one of this many faults.
#ifndef KESTREL_STRIKE_ONE_OF
#define KESTREL_STRIKE_ONE_OF 1
#endif
constexpr std::size_t strikes_one_of = KESTREL_STRIKE_ONE_OF;

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
constexpr char answers[] = "7\nTower\n10115\nBerlin\nX\n0\n52.5\n13.4\n";
constexpr char scan_file[] = "ensemblescan_10115_Berlin.json";

/// For each frame of a run, the opcode of the command that it is or reads about.
Bytes opcodes_of_frames() {
  Bytes opcodes;
  std::uint8_t opcode = 0;
  for (const auto& event : sim::events()) {
    if (!event.is_frame()) continue;
    if (event.sent[0] != 0) opcode = event.sent[0];
    opcodes.push_back(opcode);
  }
  return opcodes;
}

/// The lines of an output, with '#' for a number and without the words that a station, a table of
/// names or a signal's strength put in. Headers that may follow a text without a line end begin a
/// line.
Lines shape(std::string text) {
  const std::string label = "\"Label\": \"", after_label = "\",\n\"ComponentList\"";
  for (auto at = text.find(label); at != std::string::npos; at = text.find(label, at + 1)) {
    const auto begin = at + label.size();
    text.erase(begin, text.find(after_label, begin) - begin);
  }
  for (const auto* head : {"Event status ---", "Error getting", "\"DigitalServiceList\""}) {
    if (const auto at = text.find(head); at != std::string::npos) text.insert(at, "\n");
  }
  Lines lines;
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
    lines.push_back(shaped);
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
                     public Forked_runs {
 protected:
  Fault_matrix() {
    enter();
    write("list", frequencies);
    answers_ = answers;
  }

  std::string run_on_new_board() {
    power_on();
    if (GetParam().prepare != nullptr) {
      sim::set_booted(true);
      (void)run_program(GetParam().prepare);
    }
    std::filesystem::remove(scan_file);
    watch([this](std::size_t frame) { return faults_at(frame); });
    return run_program(GetParam().options);
  }

  /// None in the clean run; then all at each frame, but at few of the hundreds that load an image.
  [[nodiscard]] std::vector<sim::Fault> faults_at(std::size_t frame) const {
    if (opcodes_.empty()) return {};
    constexpr std::uint8_t host_load = 0x04;
    const auto at = opcodes_.begin() + static_cast<std::ptrdiff_t>(frame);
    if (*at == host_load) {
      const auto before = std::count(opcodes_.begin(), at, host_load);
      const auto left = std::count(at, opcodes_.end(), host_load);
      if (before > 6 && before % 64 > 1 && left > 2) return {};
    }
    std::vector<sim::Fault> faults;
    auto turn = frame;
    for (const auto kind : kinds) {
      if (turn++ % strikes_one_of != 0) continue;
      const auto seed = static_cast<std::uint32_t>(frame) + 1;
      constexpr std::uint32_t first_data_byte = 5;  // where counts and lengths are
      const auto number = kind == Fault_kind::flipped_byte ? first_data_byte
                          : kind == Fault_kind::garbage    ? seed
                                                           : 0;
      faults.push_back({.kind = kind, .nth = 0, .number = number});
    }
    return faults;
  }

  [[nodiscard]] std::string judge(const std::string& output) const;
  [[nodiscard]] std::string boot_again();

  std::string clean_;
  std::chrono::nanoseconds clean_time_{};
  Bytes opcodes_;  ///< of the clean run's frames
};

/// What is wrong with how the run of a child ended.
std::string Fault_matrix::judge(const std::string& output) const {
  std::ostringstream wrong;
  if (result_ != 0) wrong << "result " << result_ << "; ";
  if (is_selected_) wrong << "chip select was not released; ";
  const auto time = sim::now() - start_;
  if (time > clean_time_ + GetParam().fault_costs) wrong << "took " << time.count() << " ns; ";

  // A failed load stops SPI0, and the status that is read then reaches nobody.
  const bool has_failed_load = output.find("not transmitted successfully") != std::string::npos;
  std::size_t unheard = 0;
  for (const auto& violation : sim::violations()) {
    const auto here = count(violation, "a frame reached nobody");
    unheard += here;
    if (here + count(violation, ") refused: ") + count(violation, ") lost: ") == 0) {
      wrong << violation << "; ";
    }
  }
  if (unheard != (has_failed_load ? 1 : 0)) wrong << unheard << " frames reached nobody; ";

  const auto known = shape(clean_ + failures_say);
  const std::set<std::string> allowed(known.begin(), known.end());
  for (const auto& line : shape(output)) {
    if (!allowed.contains(line)) wrong << "printed '" << line << "'; ";
  }

  const auto document = content(scan_file);
  const bool is_whole = document.starts_with("{\"content\": ") && document.ends_with("\n]}");
  if (is_whole != output.ends_with("Thank you\n") ||
      count(document, "\"EnsemleNo\": ") != count(output, "Scanning frequency: ")) {
    wrong << "scan file '" << document << "'; ";
  }
  std::filesystem::remove(scan_file);
  return wrong.str();
}

/// What is wrong with a clean boot on the board as it is now; tried once for each kind of fault and
/// command that it struck.
std::string Fault_matrix::boot_again() {
  const auto place = static_cast<std::size_t>(fault_->kind) * 256 + opcodes_[struck_frame_];
  if (is_remembered(place)) return "";
  remember(place);
  sim::clear_events();
  const auto output = run_program(GetParam().boot);
  if (!output.ends_with("\nBoot up successful\n\n") || !sim::violations().empty() || is_selected_) {
    return "does not boot again: " + output;
  }
  return "";
}

TEST_P(Fault_matrix, EndsEveryRunInOrderAndLeavesABoardThatBoots) {
  if (geteuid() != 0) GTEST_SKIP() << "a run needs root";
  clean_ = run_on_new_board();
  clean_time_ = sim::now() - start_;
  EXPECT_EQ(sim::violations(), Lines{});
  EXPECT_FALSE(is_selected_);
  const auto opcodes = opcodes_of_frames();
  ASSERT_EQ(opcodes.size(), frame_);
  opcodes_ = opcodes;
  const auto output = run_on_new_board();
  if (fault_) {
    const auto complaint = judge(output);
    report(complaint + boot_again());
  }
  restore_output();
  EXPECT_EQ(output, clean_);
  EXPECT_GT(children_, 100U);
  EXPECT_EQ(failures_, 0U) << "runs ended as was said above";
  std::cout << GetParam().name << ": " << children_ - failures_ << " of " << children_
            << " faults survived\n";
}

INSTANTIATE_TEST_SUITE_P(Of, Fault_matrix, testing::ValuesIn(command_lines),
                         [](const auto& line) { return line.param.name; });

}  // namespace
