// SPDX-License-Identifier: GPL-3.0-or-later
//
// The radio on the simulated board, in one process: what is found plays, and what does not says
// why.
#include "kestrelctl/radio.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "../directory.h"
#include "../support.h"
#include "kestrelctl/commands.h"
#include "si468x/dab_tuning.h"

namespace {

using namespace kestrelctl;
using namespace std::chrono_literals;

class Radio_test : public testing::Test, protected Directory {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "the receiver is root's";
    sim::power_on({});
    (void)printed([this] { scan_command(store_, {}); });
  }
  void TearDown() override { sim::power_off(); }

  [[nodiscard]] Station station(const std::string& name) const {
    const auto found = find_stations(store_.stations(), name);
    return found.size() == 1 ? found.front() : Station{};
  }
  /// The last command of the opcode that the receiver got.
  static std::vector<std::uint8_t> last_command(std::uint8_t opcode) {
    const auto commands = sim::commands();
    const auto found = std::find_if(commands.rbegin(), commands.rend(),
                                    [opcode](const auto& sent) { return sent[0] == opcode; });
    return found == commands.rend() ? std::vector<std::uint8_t>{} : *found;
  }

  Store store_{path("state")};
};

TEST_F(Radio_test, PlaysEveryStationFromAFreshBoard) {
  (void)printed([this] { scan_command(store_, {.is_fm = true, .list = {}, .location = {}}); });
  unsigned played = 0;
  for (const auto& station : store_.stations()) {
    if (!station.obstacle().empty()) continue;
    sim::power_on({});
    // Loading the firmware takes most of the time, and is the same each time.
    if (played++ % 12 != 0) sim::set_booted(!station.is_fm);
    const auto reception = Radio(store_).play(station);
    EXPECT_EQ(reception.khz, station.khz);
    EXPECT_TRUE(reception.is_received);
    EXPECT_EQ(sim::violations(), std::vector<std::string>()) << station.name;
    const auto now = Radio(store_).look();
    ASSERT_TRUE(now.station) << station.name;
    EXPECT_EQ(refer_to(*now.station), refer_to(station));
    if (station.is_fm) continue;
    const auto started = last_command(0x81);
    ASSERT_EQ(started.size(), 12U) << station.name;
    EXPECT_EQ(started[4] | started[5] << 8, static_cast<int>(station.service_id));
    EXPECT_EQ(started[8] | started[9] << 8, static_cast<int>(station.component_id));
  }
  EXPECT_GT(played, 75U);
}

TEST_F(Radio_test, SaysWhyAStationDoesNotPlay) {
  const auto pop = station("Seegrund Pop");
  auto& air = sim::air();
  const auto intact = air;
  const auto home = std::ranges::find(air.ensembles, 227360U, &sim::Ensemble::khz);
  ASSERT_NE(home, air.ensembles.end());
  const auto try_pop = [&]() -> std::string {
    try {
      Radio(store_).play(pop);
    } catch (const Failure& failure) {
      return failure.what();
    }
    return "";
  };
  const auto retune = [&] { Radio(store_).play(station("Altmoor FM")); };

  retune();
  home->services.front().components.front().is_scrambled = true;
  EXPECT_EQ(try_pop(), "Seegrund Pop cannot be played: it is scrambled");
  home->services.front().components.front() = {.id = 63};
  EXPECT_EQ(try_pop(), "Seegrund Pop cannot be played: its audio has moved; scan again");
  home->services.erase(home->services.begin());
  EXPECT_EQ(try_pop(), "Seegrund Pop cannot be played: it is gone from the ensemble; scan again");
  retune();
  home->list = std::nullopt;
  EXPECT_EQ(try_pop(), "The service list of 12C has not come");
  retune();
  air.ensembles.erase(home);
  EXPECT_TRUE(try_pop().starts_with("No ensemble on 12C: ")) << try_pop();
  air = intact;
  EXPECT_EQ(try_pop(), "");
}

TEST_F(Radio_test, TakesTheScansFrequenciesOnlyIfTheReceiverLacksThem) {
  constexpr std::uint8_t set_freq_list = 0xB8;
  const auto pop = station("Seegrund Pop");
  Radio(store_).play(pop);
  EXPECT_EQ(last_command(0xB0)[2], 33);
  EXPECT_EQ(last_command(set_freq_list), std::vector<std::uint8_t>());
  std::array<unsigned int, 2> other{174928, 227360};
  const auto give_receiver = [&other](unsigned char count) {
    const Receiver session;
    ASSERT_EQ(Si468x_DAB_set_freq_list(other.data(), count), 0);
  };
  // In a list of somebody else's the station is where it is there.
  give_receiver(2);
  Radio(store_).play(station("Morgenrot"));
  Radio(store_).play(pop);
  EXPECT_EQ(last_command(0xB0)[2], 1);
  EXPECT_EQ(last_command(set_freq_list)[1], 2);
  give_receiver(1);
  Radio(store_).play(station("Morgenrot"));
  Radio(store_).play(pop);
  EXPECT_EQ(last_command(0xB0)[2], 33);
  EXPECT_EQ(last_command(set_freq_list)[1], 41);
}

TEST_F(Radio_test, RemembersWhatWasSetAndPlaysWithoutRemembering) {
  (void)printed([this] { scan_command(store_, {.is_fm = true, .list = {}, .location = {}}); });
  Radio radio(store_);
  radio.play(station("fels one"));
  radio.set_volume(21);
  radio.stop();
  EXPECT_EQ(last_command(0x13), (std::vector<std::uint8_t>{0x13, 0, 0, 3, 0, 0}));
  const auto status = printed([this] { status_command(store_, false); });
  EXPECT_NE(status.find("Volume     21, stopped\n"), std::string::npos) << status;
  // As with a full disk.
  std::filesystem::remove(path("state/settings.json"));
  std::filesystem::create_symlink("nowhere", path("state/settings.json"));
  testing::internal::CaptureStderr();
  EXPECT_TRUE(radio.play(station("Seegrund Pop")).is_received);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("what plays is not remembered"),
            std::string::npos);
}

/// Texts at random intervals, all of which a watch that looks now and then must show.
TEST_F(Radio_test, MissesNoTextWhateverTheInterval) {
  std::mt19937 random(5);
  std::uniform_int_distribution<int> milliseconds(500, 20'000);
  std::vector<sim::Text> texts;
  for (int i = 0; i < 100; ++i) {
    texts.push_back({.characters = "Text " + std::to_string(i),
                     .lasts = std::chrono::milliseconds(milliseconds(random))});
  }
  auto& air = sim::air();
  std::ranges::find(air.ensembles, 227360U, &sim::Ensemble::khz)->services.front().texts = texts;
  const auto pop = station("Seegrund Pop");
  for (const auto every : {200ms, 1000ms, 10'000ms}) {
    Radio radio(store_);
    Radio(store_).play(station("Felsental Zwei"));
    Radio(store_).play(pop);
    std::vector<std::string> heard;
    for (auto left = 100 * 10'500ms; left > 0ms && heard.size() < texts.size(); left -= every) {
      for (const auto& now : split_by_text(radio.look())) {
        if (heard.empty() || heard.back() != now.text.text) heard.push_back(now.text.text);
      }
      sim::pass_time(every);
      sim::clear_events();
    }
    std::erase(heard, "");
    ASSERT_GE(heard.size(), 80U) << every.count();
    for (std::size_t i = 0; i < heard.size(); ++i) {
      ASSERT_EQ(heard[i], texts[i % texts.size()].characters) << every.count();
    }
  }
}

}  // namespace
