// SPDX-License-Identifier: GPL-3.0-or-later
//
// A whole run of the program against a chip that may reply anything. Input: a command line's
// number, a length and that many bytes of answers, records of replies.
#include "support.h"

namespace {

/// Answers each read with the next record of an input, and reads as zeros after its end: no run
/// outlasts its input by more than its time-outs. It is also at its end after the first chunks of
/// an image, since a whole one takes a second to clock and more of them lead nowhere new.
class Replies final : public sim::Spi_device {
 public:
  explicit Replies(fuzz::Input input) : input_(input) {}
  void select() override { position_ = 0; }
  std::uint8_t exchange(std::uint8_t mosi) override {
    const auto at = position_++;
    if (at == 0) {
      if (mosi == host_load && loads_++ == most_loads) input_ = {};
      is_silent_ = mosi != 0 || input_.empty();
      if (!is_silent_) record_ = fuzz::take_record(input_);
    }
    return is_silent_ || at == 0 ? std::uint8_t{0} : fuzz::reply_byte(record_, at - 1);
  }
  void deselect() override {}
  void reset_line(bool /*high*/) override {}

 private:
  static constexpr std::uint8_t host_load = 0x04;
  static constexpr unsigned most_loads = 4;  // two for the patch, two of the receiver's image

  fuzz::Input input_;
  fuzz::Input record_;
  std::size_t position_ = 0;
  unsigned loads_ = 0;
  bool is_silent_ = true;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const auto number = fuzz::take_byte(input) % fuzz::command_lines.size();
  const auto answers = fuzz::take(input, fuzz::take_byte(input));
  Replies chip(input);
  sim::power_on({});
  sim::attach(chip);
  fuzz::run_program(fuzz::command_lines[number], std::string(answers.begin(), answers.end()));
  for (const auto& violation : sim::violations()) {
    // A boot that failed stops the bus, and the run still asks for the chip's state.
    const bool is_bus_stopped = violation.find("a frame reached nobody") != std::string::npos;
    fuzz::require(is_bus_stopped, violation.c_str());
  }
  sim::power_off();
  return 0;
}
