// SPDX-License-Identifier: GPL-3.0-or-later
//
// Power-up, loading and boot: what the chip is sent, when, and how each step fails.
#include "si468x/boot.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "si468x/firmware_images.h"
#include "support.h"

namespace {

using Boot = Board;

const Bytes loader = frame(0x80, 0x80);   // CTS, boot loader running
const Bytes overrun = frame(0x80, 0xD0);  // the same of a firmware, and a frame overrun

// Frames before the first block of the patch: POWER_UP and two reads, LOAD_INIT and one. A block is
// two frames, its own and a status read.
constexpr std::size_t at_patch = 5;
constexpr std::size_t at_image = at_patch + 2 + 2 + 2;
constexpr std::size_t at_boot = at_image + 256;  // the DAB image has 128

/// What arrived after the HOST_LOAD headers.
Bytes loaded() {
  Bytes bytes;
  for (const auto& sent : sim::commands()) {
    if (sent[0] == 4) bytes.insert(bytes.end(), sent.begin() + 4, sent.end());
  }
  return bytes;
}

TEST_F(Boot, SendsPatchAndImageWholeAndInOrder) {
  const std::tuple<unsigned char, const unsigned char*, std::size_t, std::size_t> cases[]{
      {1, fw_dab_radio_5_0_5bin, 127, 1764}, {0, fw_fmhd_radio_5_0_4bin, 129, 2312}};
  for (const auto& [dab, image, full_blocks, rest] : cases) {
    start().answer(loader, at_image + 2 * (full_blocks + 1)).by_default(ready);
    const auto boot = [is_dab = dab] { EXPECT_EQ(power_up_and_load_fw(is_dab), 1); };
    EXPECT_EQ(printed(boot), "Boot up successful\n\n");
    // Crystal oscillator of 19.2 MHz, bias 127 and in run mode 24, load capacitance 32.
    const std::string power_up = "frame 01 00 1f 7f 00 f8 24 01 20 10 00 00 00 18 00 00";
    std::string expected =
        "spi_begin|bit_order msb|mode 0|divider 32|cs 0|cs_polarity 0 low|gpio 23 low|delay_ms 200|"
        "gpio 23 high|delay_ms 50|" +
        power_up +
        "|read 7|read 5|frame 06 00|read 7|load 4092|read 7|load 1704|read 7|delay_ms 50|"
        "frame 06 00|read 7|";
    for (std::size_t i = 0; i < full_blocks; ++i) expected += "load 4092|read 7|";
    expected += "load " + std::to_string(rest) + "|read 7|delay_ms 100|frame 07 00|read 7|read 5|";
    std::string all;
    for (const auto& line : happened()) all += line + '|';
    EXPECT_EQ(all, expected);
    Bytes images(fw_rom00_patch016bin, fw_rom00_patch016bin + 5796);
    images.insert(images.end(), image, image + 4092 * full_blocks + rest);
    EXPECT_TRUE(loaded() == images);
  }
}

TEST_F(Boot, EveryFailingStepEndsInItsOwnWay) {
  constexpr std::uint64_t powered = 250'000, loaded = 400'000, in_reset = 2'000'000;
  constexpr auto patch_us = powered + in_reset, image_us = patch_us + 50'000;
  constexpr std::uint64_t never = 125'000;
  // "|": the reset line goes low.
  const std::string no_power_up = "|Could not power up the Si468x\n";
  const std::string no_patch = "||Patch not transmitted successfully\n\n";
  const std::string no_image = "|Firmware not transmitted successfully\n\n|";
  const std::string no_boot = "|Boot up failed\n\n";
  const std::vector<Script> scripts{
      {.after = 1, .then = refused, .code = 4, .wait_us = powered, .text = no_power_up},
      {.after = 2, .then = frame(0x80, 0x90), .code = 104, .wait_us = powered, .text = no_power_up},
      {.after = 2, .then = ready, .code = 104, .wait_us = powered, .text = no_power_up},
      {.after = at_patch + 3, .then = refused, .code = 108, .wait_us = patch_us, .text = no_patch},
      {.after = at_patch + 1,
       .times = 50,
       .then = busy,
       .code = 108,
       .wait_us = patch_us + never,
       .text = no_patch},
      {.after = at_image + 5, .then = arbiter, .code = 108, .wait_us = image_us, .text = no_image},
      {.after = at_image + 1,
       .times = 50,
       .then = busy,
       .code = 108,
       .wait_us = image_us + never,
       .text = no_image},
      {.after = at_patch - 1, .then = refused, .code = 110, .wait_us = loaded, .text = no_boot},
      {.after = at_boot + 1, .then = refused, .code = 10, .wait_us = loaded, .text = no_boot},
      {.after = at_boot + 2, .then = overrun, .code = 110, .wait_us = loaded, .text = no_boot}};
  const auto boot = [&] {
    mark();
    Si468x_SPI_RSTB_high();
    return power_up_and_load_fw(1);
  };
  for (const auto& row : scripts) {
    play(loader, boot, {row});
    const auto lines = happened();
    if (row.wait_us < in_reset) continue;
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
              (Lines{"gpio 23 low", "spi_end", "delay_ms 2000"}));
  }
}

TEST_F(Boot, ResultsTellRefusalFromWrongState) {
  const std::tuple<std::int16_t (*)(), Bytes, int, std::uint32_t> cases[]{
      {Si468x_power_up, loader, 0, 0},   {Si468x_power_up, ready, -5, 104},
      {Si468x_power_up, arbiter, -1, 4}, {Si468x_boot, ready, 0, 0},
      {Si468x_boot, loader, -4, 110},    {Si468x_boot, broken, -2, 10},
      {Si468x_load_init, loader, 0, 0},  {Si468x_load_init, refused, -2, 260}};
  for (const auto& [operation, answer, result, code] : cases) {
    play(answer, operation, {{.result = result, .code = code}});
  }
  const auto block = [data = Bytes(4)]() mutable {
    return Si468x_load_firmware_datapackage(data.data(), 4);
  };
  play(loader, block,
       {{.what = "at the third poll", .after = 1, .times = 2, .then = busy, .wait_us = 50 + 150},
        {.what = "at the last poll", .after = 1, .times = 49, .then = busy, .wait_us = 120'050},
        {.after = 1, .times = 50, .then = busy, .result = -3, .code = 160, .wait_us = 125'000}});
  play(busy, [] { return Si468x_load_firmware_flash(0x12345678); });
  EXPECT_EQ(happened(), Lines{"frame 05 00 00 00 78 56 34 12 00 00 00 00"});
}

TEST_F(Boot, ImageIsCutIntoBlocksFromMemoryAndFromAFile) {
  Bytes image(8185);
  for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<std::uint8_t>(i / 7);
  std::FILE* const file = std::tmpfile();  // has no name, so that nothing can be left over
  auto path = "/proc/self/fd/" + std::to_string(fileno(file));
  // Size, number of blocks, result, codes from memory and from a file; the third block is refused.
  const std::tuple<unsigned, std::size_t, int, std::uint32_t, std::uint32_t> cases[]{
      {0, 0, -6, 8, 107},
      {1, 1, 0, 0, 0},
      {4092, 1, 0, 0, 0},
      {4093, 2, 0, 0, 0},
      {8185, 3, -2, 108, 207}};
  for (const auto& [size, blocks, result, code, file_code] : cases) {
    std::ofstream(path, std::ios::binary) << std::string(image.begin(), image.begin() + size);
    for (const bool is_file : {false, true}) {
      start().answer(loader, 5).by_default(refused);
      const auto outcome = with_code(is_file ? Si468x_load_firmware(path.data())
                                             : Si468x_load_firmware_static(image.data(), size));
      EXPECT_EQ(outcome, std::pair(result, is_file ? file_code : code));
      EXPECT_EQ(commands().size(), blocks);
      EXPECT_EQ(loaded(), Bytes(image.begin(), image.begin() + size));
    }
  }
  // The end of a file is cut off while it is loaded.
  start().by_default(loader).on_byte = [&](auto...) { std::filesystem::resize_file(path, 4092); };
  EXPECT_EQ(with_code(Si468x_load_firmware(path.data())), std::pair(-6, 1107U));
  std::fclose(file);
  path = "no such file";
  play(loader, [&] { return Si468x_load_firmware(path.data()); },
       {{.what = "no file", .result = -6, .code = 7}});
  path = "/sys/kernel/mm/transparent_hugepage/enabled";  // claims a page, and gives a line
  if (!std::filesystem::exists(path)) GTEST_SKIP() << "no file that claims too much";
  play(loader, [&] { return Si468x_load_firmware(path.data()); },
       {{.what = "short", .result = -6, .code = 1007}});
}

}  // namespace
