// SPDX-License-Identifier: GPL-3.0-or-later
//
// Writes the inputs that fuzzing begins with, a directory for each target below the one that is
// named: what the program and the simulated receiver say to each other in real runs.
#include <bit>
#include <fstream>

#include "scan/ensemble_list.h"
#include "sim/world.h"
#include "support.h"

using fuzz::Bytes;

namespace {

const std::string answers = "1\nMain Street\n12345\nTown\nCountry\n0\n50.1\n8.7\n";

class Corpus {
 public:
  explicit Corpus(std::filesystem::path root) : root_(std::move(root)) {}

  template <class Seed>
  void add(const std::string& target, const Seed& seed) {
    std::filesystem::create_directories(root_ / target);
    std::ofstream file(root_ / target / ("seed_" + std::to_string(count_++)), std::ios::binary);
    std::copy(seed.begin(), seed.end(), std::ostreambuf_iterator<char>(file));
    fuzz::require(file.good(), "a seed that can be written");
  }

 private:
  std::filesystem::path root_;
  unsigned count_ = 0;
};

void append_record(Bytes& to, Bytes bytes) {
  auto length = bytes.size();
  if (length > fuzz::short_limit) {
    const auto steps = (length + fuzz::long_step - 1) / fuzz::long_step;
    bytes.resize(steps * fuzz::long_step);
    length = fuzz::short_limit + steps;
  }
  to.push_back(static_cast<std::uint8_t>(length));
  to.insert(to.end(), bytes.begin(), bytes.end());
}

/// What was read, without the end that a reply has of its own.
Bytes reply_record(const Bytes& received) {
  Bytes record(received.begin() + 1, received.end());
  while (!record.empty() && record.back() == fuzz::reply_byte({}, record.size() - 1)) {
    record.pop_back();
  }
  return record;
}

void record_run(Corpus& corpus, std::uint8_t number) {
  const auto& line = fuzz::command_lines[number];
  sim::power_on({});
  sim::set_booted(line.is_dab);
  fuzz::run_program(line, answers);

  Bytes replies{number, static_cast<std::uint8_t>(answers.size())};
  replies.insert(replies.end(), answers.begin(), answers.end());
  Bytes frames{static_cast<std::uint8_t>(line.is_dab ? sim::Firmware::dab : sim::Firmware::fmhd)};
  std::uint8_t opcode = 0;
  for (const auto& [kind, at, first, second, sent, received] : sim::events()) {
    const bool is_ms = kind == sim::Event_kind::delay_ms;
    if (is_ms || kind == sim::Event_kind::delay_us) {  // as a power of two nanoseconds
      const auto width = std::bit_width(first * (is_ms ? 1'000'000 : 1000));
      frames.insert(frames.end(), {0, static_cast<std::uint8_t>(width - 1)});
    }
    if (kind != sim::Event_kind::frame) continue;
    if (sent.size() < 256) append_record(frames, sent);
    if (sent[0] != 0) {
      opcode = sent[0];
      continue;
    }
    append_record(replies, reply_record(received));
    if (opcode == 0x80 && sent.size() > 7)
      corpus.add("service_list", std::span(received).subspan(5));
    if (opcode == 0x84 && sent.size() > 2)
      corpus.add("service_data", std::span(received).subspan(1));
  }
  corpus.add("run", replies);
  corpus.add("sim_frames", frames);
  auto state = sim::serialise({.now = sim::now(), .chip = sim::world().receiver().state()});
  corpus.add("sim_state", state.substr(0, state.rfind("checksum ")));
  std::string arguments;
  for (const auto& option : line.options) arguments += option + '\0';
  corpus.add("command_line", arguments);
}

/// The scan file of a single ensemble: a whole band is more than an input may have.
void record_scan(Corpus& corpus) {
  const auto name = std::filesystem::temp_directory_path() / "kestrel_seed_scan";
  sim::power_on({});
  sim::set_booted(true);
  std::array<unsigned int, 1> frequency_khz{194064};
  fuzz::require(Si468x_bus_init() == 0, "a board in order");
  fuzz::require(Si468x_DAB_set_freq_list(frequency_khz.data(), 1) == 0, "a list that is taken");
  std::istringstream typed(answers);
  auto* const terminal = std::cin.rdbuf(typed.rdbuf());
  Ensemble_list ensembles;
  (void)ensembles.rescan();  // both always 0
  std::cin.rdbuf(terminal);
  ensembles.file_name = name;
  (void)ensembles.save_to_file();
  std::ostringstream document;
  document << std::ifstream(name).rdbuf();
  std::filesystem::remove(name);
  corpus.add("scan_document", document.str());
}

}  // namespace

int main(int argc, char** argv) {
  fuzz::require(argc == 2, "one directory");
  Corpus corpus(std::filesystem::absolute(argv[1]));
  for (std::uint8_t i = 0; i < fuzz::command_lines.size(); ++i) record_run(corpus, i);
  record_scan(corpus);
  std::string frequencies;
  for (const auto khz : sim::band_iii_khz()) frequencies += std::to_string(khz) + '\n';
  corpus.add("frequency_file", frequencies);
  sim::power_off();
  return 0;
}
