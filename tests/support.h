// SPDX-License-Identifier: GPL-3.0-or-later
//
// What the tests share: a fresh board for every script, a scripted chip on it, and what happened on
// the wire as short texts. The scripts count frames, command writes and reads alike.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <iomanip>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "si468x/bus.h"
#include "si468x/protocol.h"
#include "sim/board.h"
#include "sim/scripted_device.h"

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

/// A frame as the chip clocks it out: a byte without meaning, four status bytes, and data.
inline Bytes frame(std::uint8_t status_0, std::uint8_t status_3, const Bytes& data = {}) {
  Bytes bytes{0x5A, status_0, 0x00, 0x00, status_3};
  for (const auto byte : data) bytes.push_back(byte);
  return bytes;
}
inline Bytes reply(const Bytes& data) { return frame(0x80, 0xC0, data); }

inline const Bytes ready = frame(0x80, 0xC0);    // CTS, firmware running
inline const Bytes busy = frame(0x00, 0xC0);     // no CTS
inline const Bytes refused = frame(0xC0, 0xC0);  // CTS, command error
inline const Bytes arbiter = frame(0x80, 0xC2);  // CTS, arbiter error
inline const Bytes broken = frame(0x80, 0xC1);   // CTS, non-recoverable error

/// One run of an operation against a chip that answers all frames well, except for some.
struct Script {
  const char* what = "";
  std::size_t after = 0;  ///< frames answered well before
  std::size_t times = 1;  ///< frames answered with `then`, if it is not empty
  Bytes then = {};
  int result = 0;
  std::uint32_t code = 0;     ///< Si468x_ErrorCode after it
  std::uint64_t wait_us = 0;  ///< sum of all delays
  std::string text = {};      ///< what is printed
};

template <class Action>
std::string printed(Action action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

/// What an operation returned, and the Si468x_ErrorCode after it.
inline std::pair<int, std::uint32_t> with_code(int result) { return {result, Si468x_ErrorCode}; }

/// Call `action` with the words of `line` as a program gets them.
template <class Action>
int with_arguments(const std::string& line, Action action) {
  std::istringstream in("kestrel " + line);
  Lines words{std::istream_iterator<std::string>(in), {}};
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  return action(static_cast<int>(words.size()), argv.data());
}

/// A report with `labels`, the first its header, and `values`, both between '|'; values left out
/// are 0. With a header that begins with a quote it is JSON.
inline std::string report(const std::string& labels, const std::string& values) {
  std::istringstream in(labels), value_in(values);
  std::ostringstream out;
  std::string label, value;
  std::getline(in, label, '|');
  const bool is_json = label[0] == '"';
  for (out << label << '\n' << std::left; std::getline(in, label, '|'); value.clear()) {
    if (!std::getline(value_in, value, '|')) value = "0";
    if (is_json) label = '"' + label + "\": ";
    out << std::setw(is_json ? 0 : 44) << label << value;
    out << (!is_json ? "\n" : in.eof() ? "\n}" : ",\n");
  }
  return out.str();
}

/// The program's output after its notice.
inline std::string behind_notice(const std::string& output) {
  const std::string notice =
      "Starting...kestrel DAB radio client\nkestrel 1.4.0\nPlease note:\n"
      "The receiver plays on when kestrel has ended; -k shuts it down.\n"
      "While kestrel runs, nothing else may use SPI0 or GPIO 7 and 23.\n\n";
  EXPECT_EQ(output.substr(0, notice.size()), notice);
  return output.substr(output.find("\n\n") + 2);
}

/// The bytes of every command frame since the start, in hexadecimal.
inline Lines commands() {
  Lines lines;
  for (const auto& text : sim::event_texts()) {
    if (text.starts_with("frame ") && !text.starts_with("frame 00"))
      lines.push_back(text.substr(6));
  }
  return lines;
}

/// All events; "read N" for N bytes of zeros sent, "load N" for N bytes after a HOST_LOAD header.
inline Lines happened() {
  Lines lines;
  for (const auto& event : sim::events()) {
    const auto& sent = event.sent;
    auto text = to_string(event);
    if (text.starts_with("frame 04 00 00 00")) text = "load " + std::to_string(sent.size() - 4);
    if (!sent.empty() && sent == Bytes(sent.size())) text = "read " + std::to_string(sent.size());
    lines.push_back(text);
  }
  return lines;
}

/// Every start is a new board with a scripted chip, its bus set up, nothing logged yet.
class Board : public testing::Test {
 protected:
  ~Board() override { sim::power_off(); }
  sim::Scripted_device& start() {
    sim::power_on({});
    sim::attach(chip_.emplace());
    EXPECT_EQ(Si468x_bus_init(), 0);
    sim::clear_events();
    Si468x_ErrorCode = 0;
    return *chip_;
  }
  /// The same with the simulated receiver, which runs the DAB or the FM firmware.
  static void receive(bool dab, const std::vector<sim::Fault>& faults = {}) {
    sim::power_on({.faults = faults});
    sim::set_booted(dab);
    EXPECT_EQ(Si468x_bus_init(), 0);
  }

  /// Have the chip leave marks on standard output: "|" among what was printed when it is reset, and
  /// past all buffers when it is to tune, to give its service list or to take frequencies, so that
  /// what had not come out yet comes after it.
  void mark() {
    chip_->on_reset_line = [](bool high) { std::fputs(high ? "" : "|", stdout); };
    chip_->on_byte = [](std::size_t at, std::uint8_t byte) {
      const bool is_marked = at == 0 && (byte == 0xB0 || byte == 0x80 || byte == 0xB8);
      EXPECT_EQ(write(STDOUT_FILENO, "|", is_marked), is_marked);
    };
  }

  template <class Operation>
  void play(const Bytes& good, Operation operation, const std::vector<Script>& scripts = {{}}) {
    for (const auto& script : scripts) {
      SCOPED_TRACE(testing::Message()
                   << "script " << &script - scripts.data() << ' ' << script.what);
      start().answer(good, script.after).by_default(good);
      if (!script.then.empty()) chip_->answer(script.then, script.times);
      EXPECT_EQ(printed([&] { EXPECT_EQ(operation(), script.result); }), script.text);
      EXPECT_EQ(Si468x_ErrorCode, script.code);
      EXPECT_EQ(sim::waited(), std::chrono::microseconds(script.wait_us));
      EXPECT_EQ(chip_->left(), 0U);
      EXPECT_EQ(sim::violations(), Lines{});
    }
  }

  std::optional<sim::Scripted_device> chip_;
};
