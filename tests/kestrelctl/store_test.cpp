// SPDX-License-Identifier: GPL-3.0-or-later
//
// What kestrelctl keeps and writes: settings and scans, and files that are whole or not there.
#include "kestrelctl/store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <set>
#include <tuple>

#include "../directory.h"
#include "kestrelctl/files.h"

namespace {

using namespace kestrelctl;
namespace fs = std::filesystem;

struct Kept : testing::Test, protected Directory {
  /// The permissions of a file, and of a directory those to pass through it.
  [[nodiscard]] unsigned mode(const std::string& name) const {
    return static_cast<unsigned>(fs::status(path(name)).permissions());
  }
  using Names = std::set<std::string>;
  [[nodiscard]] Names files(const std::string& directory = "") const {
    Names names;
    for (const auto& entry : fs::directory_iterator(path(directory))) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
};
using Store_test = Kept;
using Output = Kept;

constexpr auto at = [](int second) {
  using namespace std::chrono;
  return sys_seconds(sys_days(year(2026) / 11 / 23) + hours(6) + minutes(9) + seconds(second));
};

std::string scan(const std::string& entries) { return "{\"ensembleList\": [" + entries + "]}"; }
std::string entry(unsigned index, unsigned khz, const std::string& name, unsigned hour) {
  return "{\"EnsemleNo\": " + std::to_string(index) +
         ", \"DigradStatus\": {\"tune_freq\": " + std::to_string(khz) +
         "}, \"DigitalServiceList\": {\"ServiceList\": [{\"ServId\": 7, \"Label\": \"" + name +
         "\", \"ComponentList\": [{\"comp_ID\": 1}]}]}, \"ensembleTime\": {\"year\": 2026, "
         "\"month\": 11, \"day\": 23, \"hour\": " +
         std::to_string(hour) + "}}";
}

TEST_F(Store_test, KeepsSettingsForEverybodyToRead) {
  const Store store(path("state/kestrel"));
  EXPECT_EQ(store.settings().volume, std::nullopt);
  Settings settings;
  settings.presets = {{3, {"Küste \"1\"", false, 227360, 0xE0001234, 12}},
                      {12, {"FM", true, 98500, 0, 0}}};
  settings.last = settings.presets[12];
  settings.volume = 63;
  settings.location = {"7", "Quay", "10115", "Berlin", "\\", "", "", "13.4"};
  const auto umask_before = umask(077);
  store.save({});
  store.save(settings);
  (void)umask(umask_before);
  const auto read = store.settings();
  EXPECT_EQ(std::tie(read.presets, read.last, read.volume, read.location),
            std::tie(settings.presets, settings.last, settings.volume, settings.location));
  EXPECT_EQ(read.presets.at(3).name + read.last->name, "Küste \"1\"FM");
  EXPECT_EQ(files("state/kestrel"), Names{"settings.json"});
  EXPECT_EQ(mode("state/kestrel/settings.json"), 0644U);
  EXPECT_EQ(mode("state/kestrel"), 0755U);
}

TEST_F(Store_test, SetsADamagedFileAside) {
  const Store store(path(""));
  store.save({});
  const auto whole = content("settings.json");
  const auto settings = [](const std::string& presets, const std::string& more = "") {
    return "{\"presets\": [" + presets + R"(], "location": ["", "", "", "", "", "", "", ""])" +
           more + "}";
  };
  const std::string station =
      R"({"name": "x", "is_fm": true, "khz": 1, "service_id": 0, "component_id": )";
  const std::string rows[]{"",
                           "{}",
                           whole.substr(0, whole.size() / 2),
                           std::string(100'000, '['),
                           R"({"presets": [], "location": []})",
                           settings("[1000, " + station + "1}]"),
                           settings("[1, " + station + "\"1\"}]"),
                           settings("", R"(, "volume": 64)"),
                           settings("", R"(, "volume": 1e999)")};
  for (const auto& text : rows) {
    write("settings.json", text);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(store.settings().presets.empty());
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "kestrelctl: " + path("settings.json") + " is damaged, and is now settings.json.damaged\n");
    EXPECT_EQ(content("settings.json.damaged"), text);
    EXPECT_EQ(files(), Names{"settings.json.damaged"});
    fs::remove(path("settings.json.damaged"));
  }
  for (const std::string text : {"first", "second"}) {
    write("settings.json", text);
    (void)store.settings();
  }
  EXPECT_EQ(content("settings.json.damaged") + content("settings.json.damaged-2"), "firstsecond");
}

TEST_F(Store_test, KeepsEveryScanAndShowsTheNewest) {
  const Store store(path(""));
  const auto full = scan(entry(0, 174928, "Old A", 1) + "," + entry(1, 176640, "Old B", 1));
  const auto interrupted = scan(entry(0, 174928, "New A", 3));
  EXPECT_EQ(store.save_scan(interrupted, at(0)),
            path("scans/ensemblescan_2026-11-23T060900Z.json"));
  // The scan's own time counts, not that of its file.
  EXPECT_EQ(store.save_scan(full, at(0)), path("scans/ensemblescan_2026-11-23T060900Z-2.json"));
  EXPECT_EQ(content("scans/ensemblescan_2026-11-23T060900Z.json"), interrupted);
  (void)store.save_fm_scan({{98500, 1, "Newer", 0, 0, 0}}, at(9));
  (void)store.save_fm_scan({{98500, 1, "Older", 0, 0, 0}, {99000, 2, "Gone", 0, 0, 0}}, at(8));
  write("scans/ensemblescan_cut.json", full.substr(0, 80));
  testing::internal::CaptureStderr();
  std::string names;
  for (const auto& station : store.stations()) names += station.name + ' ';
  EXPECT_EQ(names, "New A Old B Newer ");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("ensemblescan_cut.json.damaged"),
            std::string::npos);
  EXPECT_EQ(store.scans().size(), 4U);
  EXPECT_EQ(mode("scans"), 0755U);
}

TEST_F(Output, ReplacesAFileWholeOrNotAtAll) {
  write("old", "old");
  fs::create_symlink("old", path("link"));
  fs::create_directory(path("directory"));
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_TRUE(write_file_atomically(path("new"), "new", If_present::keep));
  EXPECT_FALSE(write_file_atomically(path("old"), "new", If_present::keep));
  for (const std::string name : {"link", "directory", "fifo", "missing/file"}) {
    EXPECT_THROW((void)write_file_atomically(path(name), "new"), std::runtime_error) << name;
  }
  // As a full disk does.
  const std::string large(100'000, 'x');
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit limit{65'536, before.rlim_max};
  (void)std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  std::string message;
  try {
    (void)write_file_atomically(path("old"), large);
  } catch (const std::runtime_error& error) {
    message = error.what();
  }
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(message, path("old") + ": File too large");
  EXPECT_EQ(content("old"), "old");
  EXPECT_TRUE(write_file_atomically(path("old"), large));
  EXPECT_EQ(content("old"), large);
  EXPECT_EQ(mode("old"), 0644U);
  EXPECT_EQ(files(), (Names{"directory", "fifo", "link", "new", "old"}));
}

}  // namespace
