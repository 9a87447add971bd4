// SPDX-License-Identifier: GPL-3.0-or-later
//
// Puts the layers together and keeps the receiver's state as it changes.
#include "sim/world.h"

#include <algorithm>
#include <utility>

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

}  // namespace

World::World(const Settings& settings)
    : directory_(settings.directory.empty()
                     ? nullptr
                     : std::make_unique<Board_directory>(settings.directory)),
      saved_(saved_by(directory_.get())),
      files_(settings.board_files),
      clock_(settings.virtual_clock, time_now(saved_, settings.virtual_clock)),
      keeps_events_(settings.keeps_events),
      trace_(settings.trace),
      receiver_(clock_, air_, [this](const std::string& what) { report_misuse(what); }),
      injector_(receiver_, settings.faults) {
  receiver_.restore(saved_.chip);
  look_at_antenna();
  if (directory_ != nullptr && directory_->is_open() && directory_->is_new()) {
    directory_->make_files(files_);
    directory_->save(present());
  }
}

World::~World() {
  if (directory_ != nullptr && directory_->is_open()) {
    directory_->save(present());
  }
  totals_.simulated = clock_.now();
  totals_.waited = clock_.waited();
  trace_.summary(totals_);
}

Saved_state World::saved_by(const Board_directory* directory) {
  return directory != nullptr && directory->is_open() ? directory->load().value_or(Saved_state{})
                                                      : Saved_state{};
}

Time World::time_now(const Saved_state& saved, bool is_virtual) {
  if (saved.wall <= Time{0}) return saved.now;  // a board that is switched on for the first time
  return saved.now + (is_virtual ? virtual_absence
                                 : std::clamp<Time>(wall_now() - saved.wall, 0ns, longest_absence));
}

Saved_state World::present() const {
  return {.now = clock_.now(), .wall = wall_now(), .chip = receiver_.state()};
}

void World::look_at_antenna() {
  if (directory_ != nullptr) {
    air_.has_antenna = !directory_->has_file("antenna_out");
  }
}

void World::save_if_changed() {
  if (directory_ != nullptr && directory_->is_open() && !(receiver_.state() == saved_.chip)) {
    saved_ = present();
    directory_->save(saved_);
  }
}

void World::attach(Spi_device& device) {
  device_ = &device;
  peripherals_.set_spi(peripherals_.spi_settings());
}

void World::log(Event event) {
  totals_.delays +=
      event.kind == Event_kind::delay_ms || event.kind == Event_kind::delay_us ? 1 : 0;
  trace_.event(event, totals_.frames);
  totals_.frames += event.kind == Event_kind::frame ? 1 : 0;
  if (keeps_events_) events_.push_back(std::move(event));
}

void World::report_misuse(const std::string& what) {
  trace_.note(clock_.now(), what);
  if (keeps_events_) violations_.push_back(seconds(clock_.now()) + " s: " + what);
}

void World::clear_events() {
  events_.clear();
  violations_.clear();
}

void World::count_byte(Time duration) {
  ++totals_.wire_bytes;
  totals_.on_wire += duration;
  clock_.advance(duration);
}

std::FILE* World::open_board_file(const std::string& path, const char* mode) {
  if (directory_ != nullptr) {
    return directory_->is_open() ? directory_->open_file(path, mode) : nullptr;
  }
  const auto file = files_.find(path);
  // The stream reads the string in place; board files are only ever read.
  return file != files_.end() ? ::fmemopen(file->second.data(), file->second.size(), mode)
                              : nullptr;
}

}  // namespace sim
