// SPDX-License-Identifier: GPL-3.0-or-later
//
// Runs of the program in this process, on a board whose receiver can go wrong at any frame: there
// the process forks, and its child goes on with the fault. A crash or a hang is then the child's
// own, and no run's beginning is repeated. The fault matrix says where and how, and judges.
#pragma once

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <span>

#include "cli/run.h"
#include "sim/board.h"
#include "support.h"

class Forked_runs : public sim::Spi_device {
 protected:
  Forked_runs() {
    if (memory_ == MAP_FAILED) std::abort();
  }
  ~Forked_runs() override {
    sim::power_off();
    restore_output();
    munmap(memory_, sizeof *memory_);
  }

  /// Switch on a new board with this device on its bus, and watch nothing.
  void power_on() {
    faults_at_ = nullptr;
    sim::power_on({});
    injector_.emplace(sim::board().receiver, std::vector<sim::Fault>{});
    sim::attach(*this);
  }
  /// From now on count frames, and have a child for each fault that `faults_at` names for a frame.
  void watch(std::function<std::vector<sim::Fault>(std::size_t frame)> faults_at) {
    sim::clear_events();
    start_ = sim::now();
    frame_ = 0;
    faults_at_ = std::move(faults_at);
  }
  /// One run with `options`; its output. The result goes to `result_`.
  std::string run_program(const std::string& options) {
    renew_streams();
    before_.clear();
    result_ = with_arguments(options, ::run);
    return printed_so_far();
  }
  void restore_output() const { dup2(standard_output_, STDOUT_FILENO); }

  /// In a child: end it, and tell what is wrong with its run; nothing, if nothing is.
  [[noreturn]] void report(const std::string& complaint) const {
    if (!complaint.empty()) dprintf(standard_output_, "%s\n", complaint.c_str());
    _exit(complaint.empty() ? 0 : 1);
  }
  /// In a child: has one before it remembered this number?
  [[nodiscard]] bool is_remembered(std::size_t number) const {
    const auto numbers = std::span(memory_->numbers).first(memory_->count);
    return std::ranges::find(numbers, number) != numbers.end();
  }
  void remember(std::size_t number) {
    if (memory_->count < memory_->numbers.size()) memory_->numbers[memory_->count++] = number;
  }

  void select() override {
    is_selected_ = true;
    if (faults_at_) {
      const auto faults = faults_at_(frame_);
      for (auto fault = faults.begin(); fault != faults.end() && !fault_; ++fault) branch(*fault);
    }
    ++frame_;
    injector_->select();
  }
  std::uint8_t exchange(std::uint8_t mosi) override { return injector_->exchange(mosi); }
  void deselect() override {
    is_selected_ = false;
    injector_->deselect();
  }
  void reset_line(bool high) override { injector_->reset_line(high); }

  std::string answers_;  ///< what each run finds on its standard input
  int result_ = -1;
  bool is_selected_ = false;
  std::chrono::nanoseconds start_{};
  std::size_t frame_ = 0;                    ///< frames since `watch`
  std::size_t children_ = 0, failures_ = 0;  ///< children so far, and those with a complaint
  std::optional<sim::Fault> fault_;  ///< in a child: its fault, and the frame that it struck
  std::size_t struck_frame_ = 0;

 private:
  /// What a child tells the next.
  struct Memory {
    std::size_t count;
    std::array<std::size_t, 4000> numbers;
  };

  /// New standard streams for what comes now: a child shares none with its parent.
  void renew_streams() {
    before_ = printed_so_far();
    if (output_ != STDOUT_FILENO) close(output_);
    output_ = memfd_create("output", 0);
    const int input = memfd_create("answers", 0);
    EXPECT_EQ(write(input, answers_.data(), answers_.size()), std::ssize(answers_));
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

  /// Returns twice, as fork does: in the child with `fault` at work.
  void branch(const sim::Fault& fault) {
    std::fflush(stdout);
    const auto child = fork();
    if (child == 0) {
      alarm(120);  // seconds of real time, many under the sanitizers on a busy machine
      faults_at_ = nullptr;
      fault_ = fault;
      struck_frame_ = frame_;
      injector_.emplace(sim::board().receiver, std::vector{fault});
      renew_streams();
      return;
    }
    int outcome = 0;
    waitpid(child, &outcome, 0);
    ++children_;
    if (outcome == 0) return;
    ++failures_;
    dprintf(standard_output_, "This was %s at frame %zu: wait status %d\n",
            std::string(sim::name_of(fault.kind)).c_str(), frame_, outcome);
  }

  Memory* memory_ = static_cast<Memory*>(
      mmap(nullptr, sizeof(Memory), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  int standard_output_ = dup(STDOUT_FILENO), output_ = STDOUT_FILENO;
  std::string before_;
  std::function<std::vector<sim::Fault>(std::size_t)> faults_at_;
  std::optional<sim::Fault_injector> injector_;
};
