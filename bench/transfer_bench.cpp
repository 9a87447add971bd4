// SPDX-License-Identifier: GPL-3.0-or-later
//
// What a transferred byte costs the processor: our transfer with chip select held, beside the
// library's, on registers in plain memory that are ready at every look. On the wire a byte takes
// 1.024 us.
#include <bcm2835.h>

#include "bench/table.h"
#include "bench/timings.h"
#include "si468x/bus.h"

namespace {

constexpr double wire_ns = 1024;

void use_memory_for_registers() {
  static std::array<volatile std::uint32_t, 6> registers{};
  // Neither side clears these, and nothing else does.
  registers[BCM2835_SPI0_CS / 4] =
      BCM2835_SPI0_CS_TA | BCM2835_SPI0_CS_TXD | BCM2835_SPI0_CS_RXD | BCM2835_SPI0_CS_DONE;
  bcm2835_spi0 = registers.data();
}

template <class Transfer>
void measure(benchmark::State& state, Transfer transfer) {
  use_memory_for_registers();
  std::vector<std::uint8_t> frame(static_cast<std::size_t>(state.range(0)), 0x5A);
  const auto length = static_cast<std::uint32_t>(frame.size());
  for (auto _ : state) transfer(frame.data(), length);
}

void kestrel(benchmark::State& state) {
  measure(state, [](std::uint8_t* frame, std::uint32_t length) {
    bcm2835_spi_lowerCS();
    bcm2835_spi_transfernb_noCS(frame, frame, length);
    bcm2835_spi_higherCS();
  });
}

void library(benchmark::State& state) {
  measure(state, [](std::uint8_t* frame, std::uint32_t length) {
    bcm2835_spi_transfern(reinterpret_cast<char*>(frame), length);
  });
}

// A status read, a DAB status reply and its command byte, a block of an image.
constexpr std::array frame_bytes{7, 25, 4096};

}  // namespace

int main() {
  for (const auto bytes : frame_bytes) {
    benchmark::RegisterBenchmark("kestrel", kestrel)->Arg(bytes);
    benchmark::RegisterBenchmark("library", library)->Arg(bytes);
  }
  const Timings timings;
  for (const auto bytes : frame_bytes) {
    const auto what = "Byte of a frame of " + std::to_string(bytes);
    const double ours_ns = timings.ns("kestrel", bytes) / bytes;
    row((what + "; the library's").c_str(), ours_ns, timings.ns("library", bytes) / bytes, "ns",
        "≤ 1");
    row((what + "; its time on the wire").c_str(), ours_ns, wire_ns, "ns");
  }
}
