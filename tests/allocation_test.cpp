// SPDX-License-Identifier: GPL-3.0-or-later
//
// The driver takes no memory from the heap, and the scan takes one buffer a slot. Every allocation
// of this program is counted; the simulated board makes many, so that the driver stands here on a
// handful of functions that answer every read alike.
#include <bcm2835.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "scan/ensemble_list.h"
#include "si468x/boot.h"
#include "si468x/chip_info.h"
#include "si468x/fm_rds.h"
#include "si468x/fm_tuning.h"
#include "si468x/properties.h"
#include "si468x/record.h"
#include "si468x/service_playback.h"

namespace {
unsigned allocations = 0, slot_buffers = 0;
void count_allocation(std::size_t bytes) {
  ++allocations;
  if (bytes == service_list_reply_bytes) ++slot_buffers;
}
}  // namespace

// The C library keeps its own under these names for those who replace it. What C++ allocates comes
// through here, too.
extern "C" {
void* system_malloc(std::size_t) noexcept asm("__libc_malloc");
void* system_calloc(std::size_t, std::size_t) noexcept asm("__libc_calloc");
void* system_realloc(void*, std::size_t) noexcept asm("__libc_realloc");
void* malloc(std::size_t n) noexcept { return count_allocation(n), system_malloc(n); }
void* calloc(std::size_t k, std::size_t n) noexcept {
  return count_allocation(k * n), system_calloc(k, n);
}
void* realloc(void* p, std::size_t n) noexcept { return count_allocation(n), system_realloc(p, n); }
}

// A board whose chip is always ready: each reply says CTS and tune complete; 3 indices; a service
// list of 0x0503 bytes; a new list in version 0x1B2A; FIC quality 30; 0x0503 bytes of payload.
namespace {
constexpr std::uint8_t reply[32]{0, 0x81, 0, 0, 0xC0, 3, 5, 0x2A, 0x1B, 30, 0,
                                 0, 0,    0, 0, 0,    0, 0, 0,    3,    5};
std::size_t position = 0;
bool has_powered_up = false;
std::uint8_t exchange(std::uint8_t mosi) {
  if (position == 0 && mosi != 0) has_powered_up = mosi == 0x01;
  if (position == 4 && has_powered_up) return ++position, 0x80;  // the boot loader runs
  return position < sizeof reply ? reply[position++] : std::uint8_t{0};
}
volatile std::uint32_t registers[2]{0x70000};  // status: room, data, done
}  // namespace

volatile uint32_t* bcm2835_spi0 = registers;
off_t bcm2835_peripherals_base = 0;
size_t bcm2835_peripherals_size = 0;
int bcm2835_init() { return 1; }
int bcm2835_close() { return 1; }
int bcm2835_spi_begin() { return 1; }
void bcm2835_spi_end() {}
void bcm2835_gpio_fsel(uint8_t, uint8_t) {}
void bcm2835_gpio_set_pud(uint8_t, uint8_t) {}
void bcm2835_gpio_write(uint8_t, uint8_t) {}
void bcm2835_spi_setBitOrder(uint8_t) {}
void bcm2835_spi_setDataMode(uint8_t) {}
void bcm2835_spi_setClockDivider(uint16_t) {}
void bcm2835_spi_chipSelect(uint8_t) {}
void bcm2835_spi_setChipSelectPolarity(uint8_t, uint8_t) {}
void bcm2835_delay(unsigned) {}
void bcm2835_delayMicroseconds(uint64_t) {}
void bcm2835_peri_set_bits(volatile uint32_t*, uint32_t, uint32_t) { position = 0; }
uint32_t bcm2835_peri_read(volatile uint32_t* at) { return *at; }
void bcm2835_peri_write(volatile uint32_t* at, uint32_t value) { *at = exchange(uint8_t(value)); }
void bcm2835_spi_transfern(char* buf, uint32_t len) {
  position = 0;
  for (uint32_t i = 0; i < len; ++i) buf[i] = char(exchange(uint8_t(buf[i])));
}

namespace {

unsigned char array[service_data_reply_bytes];
std::uint16_t property[]{0x0300, 0x0503};
unsigned khz[]{174'928, 176'640, 178'352};
Si468x_DAB_digrad_status signal_found;
template <auto Read, class... Arguments>
int read(Arguments... arguments) {
  typename si468x::Member_of<decltype(Read)>::record record;
  return (record.*Read)(arguments...);
}

TEST(Allocations, AreCounted) {
  const auto before = std::pair(allocations, slot_buffers);
  std::free(std::malloc(service_list_reply_bytes));  // nothing is optimised away here
  delete[] new char[service_list_reply_bytes];
  EXPECT_EQ(std::pair(allocations, slot_buffers), std::pair(before.first + 2, before.second + 2));
}

TEST(Allocations, AreNotMadeByTheDriver) {
  const std::pair<int, int (*)()> operations[]{
      {1, [] { return int{power_up_and_load_fw(1)}; }},
      {1, [] { return int{power_up_and_load_fw(0)}; }},
      {0, read<&Si468x_chip_info::get_status>},
      {0, read<&Si468x_chip_info::get_part_info>},
      {0, read<&Si468x_chip_info::get_sys_state>},
      {0, read<&Si468x_chip_info::get_func_info>},
      {0, read<&Si468x_DAB_digrad_status::get_new_status>},
      {0, read<&Si468x_DAB_event_status::get_new_status>},
      {0, read<&Si468x_time::get_ensembletime>},
      {0, read<&Si468x_FM_rsq_status::get_status>},
      {0, read<&Si468x_FM_rds_status::get_status>},
      {0, [] { return read<&Si468x_digital_service_list::get_new_list>(array); }},
      {0, [] { return read<&Si468x_digital_service_data::get_new_data>(array); }},
      {0, [] { return int{Si468x_set_property(property)}; }},
      {0, [] { return int{Si468x_DAB_set_freq_list(khz, 3)}; }},
      {1, [] { return int{Si468x_DAB_tune_freq_save(2, signal_found)}; }},
      {0, [] { return int{Si468x_start_digital_service(0, 17333, 12)}; }},
      {0, [] { return int{Si468x_FM_tune_freq(98'500)}; }},
      {0, [] { return int{Si468x_tune_next_station()}; }},
      {0, [] { return int{Si468x_tune_previous_station()}; }},
  };
  for (std::size_t i = 0; i < std::size(operations); ++i) {
    const auto [expected, operation] = operations[i];
    const auto before = allocations;
    const auto result = operation();
    EXPECT_EQ(allocations - before, 0U) << "row " << i;
    EXPECT_EQ(result, expected) << "row " << i;
  }
}

TEST(Allocations, OfAScanAreOneBufferASlotHoweverOftenItIsMade) {
  auto* const input = std::cin.rdbuf(nullptr);  // no answers, and nothing shown
  auto* const output = std::cout.rdbuf(nullptr);
  Ensemble_list ensembles;
  for (const unsigned buffers : {3U, 0U}) {
    const auto before = slot_buffers;
    ensembles.rescan();
    EXPECT_EQ(slot_buffers - before, buffers);
  }
  std::cin.rdbuf(input);
  std::cout.rdbuf(output);
  auto& list = ensembles.service_list[2];
  EXPECT_EQ(list.ServiceEntriesSize, 0x0503 - 6);
  for (const unsigned buffers : {1U, 0U}) {
    const auto before = allocations;
    ensembles.add_ensemble(47, list, signal_found, ensembles.ensemble_time[2]);
    EXPECT_EQ(allocations - before, buffers);
  }
}

}  // namespace
