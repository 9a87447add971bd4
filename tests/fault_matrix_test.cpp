// SPDX-License-Identifier: GPL-3.0-or-later
//
// Every fault at every frame of four runs of the program. Each must come to an end that the program
// has a message for, within the waits that one fault can cost, and leave a board that boots again.
#include <iostream>
#include <map>
#include <set>

#include "directory.h"
#include "forked_runs.h"

namespace {

// Builds that run slowly strike few of the frames that carry the images; the slowest strike each
// frame with one fault of so many in turn.
#ifdef KESTREL_STRIKE_ONE_OF
constexpr bool strikes_all = false;
constexpr std::size_t strikes_one_of = KESTREL_STRIKE_ONE_OF;
#else
constexpr bool strikes_all = true;
constexpr std::size_t strikes_one_of = 1;
#endif

using namespace std::chrono_literals;
using sim::Fault_kind;

/// What a frame is to the exchange that it belongs to; `status` reads belong to none.
enum Role { command, early_poll, cts_poll, reply_read, tune_poll, status };

/// For each role: does the exchange work or fail under the fault, or can it do either ('?')? A
/// fault at a command lasts through its reads; one at a poll without CTS meets no judgement.
const std::map<Fault_kind, const char*> kinds{
    {Fault_kind::no_cts, "FFFWWW"},        {Fault_kind::late_cts, "WWWWWW"},
    {Fault_kind::command_error, "FWFFWW"}, {Fault_kind::arbiter_error, "FWFFWW"},
    {Fault_kind::dropped_write, "FWFFWW"}, {Fault_kind::dropped_read, "FWFFWW"},
    {Fault_kind::all_ones, "FFFFWW"},      {Fault_kind::non_recoverable, "FWFFWW"},
    {Fault_kind::all_zeros, "FWWFWF"},     {Fault_kind::reset, "F??F?F"},
    {Fault_kind::garbage, "??????"},       {Fault_kind::flipped_byte, "?WW?WW"}};

/// A frame of the clean run: it belongs to the `nth` exchange with `opcode` (0: a status read).
struct Place {
  std::uint8_t opcode = 0;
  int nth = 0;
  Role role = status;
};

const std::string not_booted =
    "Si468x is not booted up, no firmware loaded. Please use the command boot first.\n\n";
const std::string not_tuned = "Could not tune to frequency\n\n";
const std::string no_patch = "Patch not transmitted successfully\n\n";

/// A line of a text report that shows nothing.
std::string empty(std::string label, const std::string& value = "0") {
  label.resize(44, ' ');
  return label + value + '\n';
}

/// What these runs print when exchange `first`, or a later one, with `opcode` fails; behind a '!':
/// what they do not. Without a row the output stays as it was.
struct Consequence {
  const char* runs;
  std::uint8_t opcode;
  int first;
  std::string text;
  bool is_unseen = false;  ///< the run does not look at the result: only a lost command counts
};
// The scan goes on to its last frequency, whatever it found at one. A seek that is given up keeps
// the chip busy, so that what follows it may be lost.
const Consequence consequences[]{
    {"abcd", 0x00, 0, not_booted},
    {"ab", 0x01, 0, "Could not power up the Si468x\n"},
    {"ab", 0x04, 0, no_patch},
    {"ab", 0x04, 2, "Firmware not transmitted successfully\n\n"},
    {"ab", 0x06, 0, no_patch, true},
    {"ab", 0x06, 1, not_booted, true},
    {"ab", 0x07, 0, "Boot up failed\n\n"},
    {"a", 0x00, 1, empty("Powerup state:")},
    {"a", 0x08, 0, empty("Part Number:")},
    {"a", 0x09, 0, empty("Firmware image running the sysstate CMD:", "Bootloader")},
    {"a", 0x12, 0, empty("Revision number:", "0.0.0")},
    {"a", 0x80, 0, "\"NumberServices\": 0,\n"},
    {"a", 0x81, 0, "Could not start service\n\n"},
    {"a", 0x84, 0, "Error getting service data \n\n"},
    {"a", 0xB0, 0, not_tuned, true},
    {"a", 0xB2, 1, "\"tune_freq\": 0,\n"},
    {"a", 0xB3, 0, empty("Service list version:")},
    {"a", 0xBC, 0, "\"year\": 0,\n"},
    {"b", 0x13, 0, "!FM RSQ status"},
    {"b", 0x14, 0, "!FM RSQ status"},
    {"b", 0x30, 0, not_tuned},
    {"b", 0x31, 0, "Tuned.\n\n"},
    {"b", 0x32, 0, empty("Currently tuned frequency:")},
    {"b", 0x34, 0, empty("Program Identification:")},
    {"c", 0xB8, 0, "Error setting frequency list.\n"},
    {"d", 0xB0, 0, "Scanning frequency: 229072"},
    {"d", 0xB2, 0, "Scanning frequency: 229072"},
    {"d", 0xB3, 0, "Scanning frequency: 229072"},
    {"d", 0xB9, 0, "!Scanning"},
    {"d", 0xB9, 1, "Scanning frequency: 0 kHz"},
};

// One fault can cost one wait of each kind that a run has. A failed load waits less, and ends it.
constexpr auto on_wire = 200us;                            // more than a poll's bytes take
constexpr auto cts_wait = 1'227'500us + 50 * on_wire;      // 50, 1050, ... 49,050 us
constexpr auto tune_wait = 100 * (100ms + on_wire);        // for seek/tune complete
constexpr auto acquisition_wait = 10 * (200ms + on_wire);  // for an ensemble
constexpr auto list_wait = 50 * (200ms + on_wire);         // for its service list

struct Command_line {
  char letter;
  const char* options;
  const char* prepare;  ///< options of a run before it, on a booted receiver; null: a new board
  const char* boot;     ///< options of a run that boots the firmware that this one needs
  std::chrono::microseconds fault_costs;

  friend void PrintTo(const Command_line& line, std::ostream* out) { *out << line.options; }
};
const Command_line command_lines[]{
    {'a', "-b D -f 33 -e 17333 -c 12 -p -l 50 -i -d -j -g -D -n -t", nullptr, "-b D",
     cts_wait + tune_wait + acquisition_wait},
    {'b', "-b F -F 98500 -x -X -r", nullptr, "-b F", cts_wait + tune_wait},
    {'c', "-o 1 -y list", "-l 20", "-b D", cts_wait},
    {'d', "-u", "-y list", "-b D", cts_wait + tune_wait + list_wait},
};

// Ensembles, of which one is weak and late, one never acquired and one without a time; a carrier;
// noise.
constexpr char frequencies[] = "178352\n188928\n190640\n197648\n220352\n222064\n227360\n229072\n";
constexpr char answers[] = "7\nTower\n10115\nBerlin\nX\n0\n52.5\n13.4\n";
constexpr char scan_file[] = "ensemblescan_10115_Berlin.json";

std::vector<Place> find_places() {
  std::vector<Place> places;
  std::map<std::uint8_t, int> exchanges;
  Place place;
  for (const auto& event : sim::events()) {
    if (!event.is_frame()) continue;
    const auto opcode = event.sent[0];
    const bool is_tune = place.opcode == 0xB0 || place.opcode == 0x30 || place.opcode == 0x31;
    if (opcode != 0) {
      place = {opcode, exchanges[opcode]++, command};
    } else if (place.role == command || place.role == early_poll) {
      place.role = (event.received[1] & 0x80) != 0 ? cts_poll : early_poll;
    } else if (place.role == cts_poll) {
      place.role = is_tune ? tune_poll : reply_read;
    } else if (place.role != tune_poll) {
      place = {opcode, exchanges[opcode]++, status};
    }
    places.push_back(place);
  }
  return places;
}

char find_fate(const Place& place, Fault_kind kind, bool is_unseen) {
  const bool is_command = place.role == command, is_reset = kind == Fault_kind::reset;
  // A chip that has just been reset loses nothing by another one.
  if (place.opcode == 0x01 && is_command && is_reset) return 'W';
  const bool is_refused = kind == Fault_kind::command_error || kind == Fault_kind::dropped_write;
  if (is_unseen) return is_reset || (is_command && is_refused) ? 'F' : 'W';
  if (place.opcode != 0x84) return kinds.at(kind)[place.role];
  // Service data: the reader looks at CTS alone, and a reply without a packet prints nothing.
  if (kind == Fault_kind::no_cts || (kind == Fault_kind::all_zeros && is_command)) return 'F';
  const bool is_changed = kind == Fault_kind::garbage || kind == Fault_kind::flipped_byte;
  return is_reset || is_changed ? '?' : 'W';
}

/// The lines of an output, with '#' for a number and without the words that a station, a table of
/// names or a signal's strength put in. Headers that may follow a text without a line end begin a
/// line.
Lines shape(std::string text) {
  const std::string label = "\"Label\": \"", behind_label = "\",\n\"ComponentList\"";
  for (auto at = text.find(label); at != std::string::npos; at = text.find(label, at + 1)) {
    const auto begin = at + label.size();
    text.erase(begin, text.find(behind_label, begin) - begin);
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
  static void TearDownTestSuite() {
    std::cout << "fault matrix: " << survived_ << " of " << cases_ << " cases survived (" << counts_
              << ")\n";
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

  /// All faults at all frames, but none in the clean run.
  [[nodiscard]] std::vector<sim::Fault> faults_at(std::size_t frame) const {
    if (places_.empty()) return {};
    const auto is_load = [](const Place& place) { return place.opcode == 0x04; };
    const auto at = places_.begin() + static_cast<std::ptrdiff_t>(frame);
    if (!strikes_all && is_load(*at)) {
      const auto before = std::count_if(places_.begin(), at, is_load);
      const auto left = std::count_if(at, places_.end(), is_load);
      if (before >= 4 && before % 16 != 0 && left > 4) return {};
    }
    std::vector<sim::Fault> faults;
    auto turn = frame;
    for (const auto& [kind, fates] : kinds) {
      if (turn++ % strikes_one_of != 0) continue;
      const bool is_flip = kind == Fault_kind::flipped_byte;
      if (is_flip && is_load(*at)) continue;  // what is read while loading carries no data
      const auto seed = static_cast<std::uint32_t>(frame) + 1;
      constexpr std::uint32_t first_data_byte = 5;  // where counts and lengths stand
      const auto number = is_flip ? first_data_byte : kind == Fault_kind::garbage ? seed : 0;
      faults.push_back({.kind = kind, .nth = 0, .number = number});
    }
    return faults;
  }

  [[nodiscard]] std::string judge(const std::string& output) const;
  [[nodiscard]] std::string boot_again();

  std::string clean_;
  std::chrono::nanoseconds clean_time_{};
  std::vector<Place> places_;  ///< of the clean run's frames
  static inline std::size_t survived_ = 0, cases_ = 0;
  static inline std::string counts_;
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
  if (unheard != (has_failed_load ? 1 : 0) ||
      (has_failed_load && sim::events().back().sent != Bytes(7))) {
    wrong << unheard << " frames reached nobody; ";
  }

  const auto clean = shape(clean_), lines = shape(output);
  std::set<std::string> allowed(clean.begin(), clean.end());
  allowed.insert({"", "]"});  // "]": of an empty service list
  const auto place = places_[struck_frame_];
  const Consequence* consequence = nullptr;
  for (const auto& row : consequences) {
    if (std::string(row.runs).find(GetParam().letter) == std::string::npos) continue;
    for (const auto& line : shape(row.text)) allowed.insert(line);
    if (row.opcode == place.opcode && row.first <= place.nth) consequence = &row;
  }
  for (const auto& line : lines) {
    if (!allowed.contains(line)) wrong << "printed '" << line << "'; ";
  }
  const auto fate =
      find_fate(place, fault_->kind, consequence != nullptr && consequence->is_unseen);
  if (fate == 'F' && consequence != nullptr) {
    const bool is_unwanted = consequence->text[0] == '!';
    const bool is_printed =
        output.find(consequence->text.substr(is_unwanted ? 1 : 0)) != std::string::npos;
    if (is_printed == is_unwanted) wrong << "expected '" << consequence->text << "'; ";
  } else if (fate == 'W' || (fate == 'F' && fault_->kind != Fault_kind::reset)) {
    if (lines != clean) wrong << "the output differs from a clean run's; ";
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

/// What is wrong with a clean boot on the board as it is now. Boards whose states differ in nothing
/// but simulated time are booted once.
std::string Fault_matrix::boot_again() {
  auto chip = sim::board().receiver.state;
  for (auto* time : {&chip.busy_until, &chip.signal_since, &chip.tuned_at, &chip.complete_at, &chip.signal_seen_at,
                     &chip.events_seen_at, &chip.playing_since}) {
    *time = {};
  }
  auto state = sim::serialise({.chip = chip});
  for (const auto& event : sim::events()) {
    if (event.text.starts_with("gpio") || event.text.starts_with("spi_")) state += event.text;
  }
  const auto hash = std::hash<std::string>{}(state);
  if (is_remembered(hash)) return "";
  sim::clear_events();
  const auto output = run_program(GetParam().boot);
  if (!output.ends_with("\nBoot up successful\n\n") || !sim::violations().empty() || is_selected_) {
    return "does not boot again: " + output;
  }
  remember(hash);
  return "";
}

TEST_P(Fault_matrix, EndsEveryRunInOrderAndLeavesABoardThatBoots) {
  if (geteuid() != 0) GTEST_SKIP() << "a run needs root";
  clean_ = run_on_new_board();
  clean_time_ = sim::now() - start_;
  const auto violations = sim::violations();
  const auto places = find_places();
  EXPECT_EQ(places.size(), frame_);
  places_ = places;
  const auto output = run_on_new_board();
  if (fault_) {
    const auto complaint = judge(output);
    report(complaint + boot_again());
  }
  restore_output();
  EXPECT_EQ(output, clean_);
  EXPECT_EQ(violations, Lines{});
  EXPECT_FALSE(is_selected_);
  EXPECT_GT(children_ * strikes_one_of, places.size());
  EXPECT_EQ(failures_, 0U) << "runs ended as was said above";
  cases_ += children_;
  survived_ += children_ - failures_;
  counts_ += (counts_.empty() ? "" : ", ") + std::string(1, GetParam().letter) + ' ' +
             std::to_string(children_);
}

INSTANTIATE_TEST_SUITE_P(Of, Fault_matrix, testing::ValuesIn(command_lines),
                         [](const auto& line) { return std::string(1, line.param.letter); });

}  // namespace
