// SPDX-License-Identifier: GPL-3.0-or-later
//
// The board, its directory and its settings from the environment, which nothing else reads.
#include "sim/board.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>

#include "si468x/board_file.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

// A board that was left alone for longer than this, or whose clock was set back, has just been off.
constexpr Time longest_absence = 24h * 3650;
// Between two runs on the virtual clock: long enough for the receiver to have got on with its work.
constexpr Time virtual_absence = 1s;

Time wall_now() {
  return std::chrono::duration_cast<Time>(std::chrono::system_clock::now().time_since_epoch());
}

Time time_now(const Saved_state& saved, bool is_virtual) {
  if (saved.wall <= Time{0}) return saved.now;  // a board that is switched on for the first time
  return saved.now + (is_virtual ? virtual_absence
                                 : std::clamp<Time>(wall_now() - saved.wall, 0ns, longest_absence));
}

/// The value of a variable, empty when it is not set.
std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

void ignore(const char* name, std::string_view value) {
  (void)std::fprintf(stderr, "kestrel-sim: %s: \"%.*s\" is not understood and ignored\n", name,
                     static_cast<int>(value.size()), value.data());
}

Settings settings_from_environment() {
  constexpr const char* clock_name = "KESTREL_SIM_CLOCK";
  constexpr const char* fault_name = "KESTREL_SIM_FAULT";
  Settings settings;
  const auto directory = variable("KESTREL_SIM_DIR");
  settings.directory = directory.empty() ? "/run/kestrel-sim" : directory;
  settings.trace = variable("KESTREL_SIM_TRACE");
  settings.keeps_events = false;
  const auto clock = variable(clock_name);
  settings.virtual_clock = clock == "virtual";
  if (!clock.empty() && clock != "virtual" && clock != "real") ignore(clock_name, clock);
  for (std::string_view rest = variable(fault_name); !rest.empty();) {
    const std::string_view text = rest.substr(0, rest.find(','));
    rest.remove_prefix(std::min(text.size() + 1, rest.size()));
    if (const auto fault = parse_fault(text)) {
      settings.faults.push_back(*fault);
    } else {
      ignore(fault_name, text);
    }
  }
  return settings;
}

std::unique_ptr<Board>& present_board() {
  static std::unique_ptr<Board> present;
  return present;
}

}  // namespace

Board::Board(const Settings& settings)
    : directory_(settings.directory),
      files_(settings.board_files),
      saved_(load()),
      device_(&faults),
      trace_(settings.trace),
      keeps_events_(settings.keeps_events),
      clock(settings.virtual_clock, time_now(saved_, settings.virtual_clock)),
      receiver(clock, air, [this](const std::string& what) { report_violation(what); }),
      faults(receiver, settings.faults),
      peripherals(*this, saved_.chip.reset_high) {
  unmap_library();
  receiver.state = saved_.chip;
  look_at_antenna();
}

Board::~Board() {
  save();
  trace_.summary(clock.now(), clock.waited(), on_wire, wire_bytes);
}

void Board::complain(const char* what) {
  if (std::exchange(has_complained_, true)) return;
  (void)std::fprintf(stderr, "kestrel-sim: board directory %s: %s\n", directory_.c_str(), what);
}

/// The state in the board's directory. A board that has none is new, and gets its files.
Saved_state Board::load() {
  if (directory_.empty()) return {};
  if (::mkdir(directory_.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    complain(std::strerror(errno));
    is_usable_ = false;
    return {};
  }
  if (std::ifstream file(directory_ / "state"); file) {
    const auto state = parse_state(std::string(std::istreambuf_iterator<char>(file), {}));
    if (!state) complain("its state file is damaged or foreign; the receiver is in reset");
    return state.value_or(Saved_state{});
  }
  for (const auto& [name, content] : files_) {
    const auto path = directory_ / name.substr(1);
    std::error_code error;  // shows when the file is made
    std::filesystem::create_directories(path.parent_path(), error);
    if (std::filesystem::exists(path, error)) continue;
    if (!(std::ofstream(path, std::ios::binary) << content)) complain(std::strerror(errno));
  }
  return {};
}

/// Whoever reads the file, at whatever moment this process dies, finds the old or the new state
/// whole.
void Board::save() {
  saved_ = {.now = clock.now(), .wall = wall_now(), .chip = receiver.state};
  if (directory_.empty() || !is_usable_) return;
  const auto next = directory_ / "state.new";
  bool is_saved = static_cast<bool>(std::ofstream(next) << serialise(saved_) << std::flush);
  is_saved = is_saved && std::rename(next.c_str(), (directory_ / "state").c_str()) == 0;
  if (!is_saved) complain(std::strerror(errno));
}

void Board::catch_up() {
  if (directory_.empty() || !is_usable_) return;
  const auto stored = load();
  if (stored.wall == saved_.wall) return;
  clock.advance(std::max<Time>(stored.now - clock.now(), 0ns));
  receiver.state = stored.chip;
  saved_ = stored;
}

void Board::save_if_changed() {
  if (receiver.state != saved_.chip) save();
}

void Board::look_at_antenna() {
  if (directory_.empty()) return;
  air.has_antenna = ::access((directory_ / "antenna_out").c_str(), F_OK) != 0;
}

void Board::log(Event event) {
  trace_.event(event);
  if (keeps_events_) events.push_back(std::move(event));
}

void Board::report_violation(const std::string& what) {
  trace_.violation(clock.now(), what);
  violations.push_back(seconds(clock.now()) + " s: " + what);
}

void Board::count_byte(Time duration) {
  ++wire_bytes;
  on_wire += duration;
  clock.advance(duration);
}

std::FILE* Board::open_file(const std::string& path, const char* mode) {
  if (!directory_.empty()) {
    return is_usable_ ? std::fopen((directory_.string() + path).c_str(), mode) : nullptr;
  }
  const auto file = files_.find(path);
  // The stream reads the string in place; board files are only ever read.
  return file != files_.end() ? ::fmemopen(file->second.data(), file->second.size(), mode)
                              : nullptr;
}

Board& board() {
  auto& present = present_board();
  if (present == nullptr) present = std::make_unique<Board>(settings_from_environment());
  return *present;
}

Board_files default_board_files() {
  using namespace std::string_literals;
  // Each row of the ranges: address on the bus, address for the processor in two words, size.
  return {
      {"/dev/spidev0.0", ""},
      {"/proc/device-tree/model", "Raspberry Pi 4 Model B Rev 1.4\0"s},
      {"/proc/device-tree/soc/ranges",
       "\x7E\x00\x00\x00\x00\x00\x00\x00\xFE\x00\x00\x00\x01\x80\x00\x00"s
       "\x7C\x00\x00\x00\x00\x00\x00\x00\xFC\x00\x00\x00\x02\x00\x00\x00"s
       "\x40\x00\x00\x00\x00\x00\x00\x00\xFF\x80\x00\x00\x00\x80\x00\x00"s},
  };
}

void power_on(const Settings& settings) {
  power_off();
  present_board() = std::make_unique<Board>(settings);
}

void power_off() { present_board().reset(); }

std::vector<std::string> event_texts() {
  std::vector<std::string> texts;
  for (const Event& event : events()) texts.push_back(to_string(event));
  return texts;
}

std::vector<std::vector<std::uint8_t>> commands() {
  std::vector<std::vector<std::uint8_t>> frames;
  for (const Event& event : events()) {
    if (!event.sent.empty() && event.sent[0] != 0) frames.push_back(event.sent);
  }
  return frames;
}

void set_booted(bool dab) {
  Board& present = board();
  start_firmware(present.receiver.state, dab ? Firmware::dab : Firmware::fmhd);
  present.save_if_changed();
  present.peripherals.set_reset_level(true);
}

}  // namespace sim

std::FILE* open_board_file(const char* path, const char* mode) {
  return sim::board().open_file(path, mode);
}
