// SPDX-License-Identifier: GPL-3.0-or-later
//
// Writing the scan file of a whole band of full service lists, beside a general JSON library that
// builds and writes the same document; and how the time grows with the number of services. Nothing
// is written to a disk.
#include <sys/mman.h>

#include <cstdlib>
#include <fstream>
#include <new>
#include <nlohmann/json.hpp>

#include "bench/table.h"
#include "bench/timings.h"
#include "scan/ensemble_list.h"

namespace {
std::size_t allocated_bytes = 0;
}

// Inlined, GCC takes malloc for a mismatched partner of delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
  allocated_bytes += size;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using nlohmann::ordered_json;

// What a list of 4089 bytes has after its header: room for 170 services, or for 145 that have one
// component each.
constexpr std::size_t entries_bytes = 4083;
constexpr int most_services = 170;
constexpr int most_with_component = 145;

/// The entries of a list, and the list that refers to them.
struct Service_list {
  std::array<std::uint8_t, entries_bytes> entries{};
  Si468x_digital_service_list list;

  Service_list(int services, std::uint8_t components) {
    auto* at = entries.data();
    for (int i = 0; i < services; ++i) {
      // Id, audio service of programme type 10, component count; label; a DAB+ component.
      const std::array<std::uint8_t, 8> head{
          static_cast<std::uint8_t>(i), 0xD3, 0, 0, 10 << 1, components};
      at = std::copy(head.begin(), head.end(), at);
      at = std::copy_n("Radio Seegrund 1", sizeof Si468x_service_data::Label, at);
      for (int c = 0; c < components; ++c) at = std::copy_n("\x0C\x00\xFE\x01", 4, at);
    }
    list.NumberServices = static_cast<std::uint8_t>(services);
    list.ServiceEntriesSize = entries_bytes;
    list.ServiceEntries = entries.data();
  }
};

void fill(Ensemble_list& ensembles, int services, std::uint8_t components) {
  Service_list source(services, components);
  Si468x_DAB_digrad_status status;
  status.acq = status.valid = 1;
  status.rssi = 62;
  status.tune_freq = 227360;
  Si468x_time time{2024, 3, 5, 9, 47, 44};
  for (unsigned short i = 0; i < Ensemble_list::slots; ++i) {
    (void)ensembles.add_ensemble(i, source.list, status, time);
  }
  ensembles.number_of_frequencies = Ensemble_list::slots;
  ensembles.file_name = "/dev/null";
}

/// The document that save_to_file writes.
std::string saved_text(Ensemble_list& ensembles) {
  ensembles.file_name = "/proc/self/fd/" + std::to_string(memfd_create("document", MFD_CLOEXEC));
  (void)ensembles.save_to_file();
  std::stringstream text;
  text << std::ifstream(ensembles.file_name).rdbuf();
  ensembles.file_name = "/dev/null";
  return text.str();
}

/// The values of every service, as the library's document needs them, too.
void decode(Ensemble_list& ensembles) {
  Si468x_service_data service;
  Si468x_DAB_component component;
  for (auto& list : ensembles.service_list) {
    for (unsigned char i = 0; service.get_service(&list, i) == 0; ++i) {
      (void)component.get_component(&service, 0);
      benchmark::DoNotOptimize(service);
      benchmark::DoNotOptimize(component);
    }
  }
}

/// A document built member by member, as by a program that has the values.
ordered_json build(const ordered_json& from) {
  ordered_json to;
  if (from.is_object()) {
    for (const auto& [key, value] : from.items()) to[key] = build(value);
  } else if (from.is_array()) {
    for (const auto& value : from) to.push_back(build(value));
  } else {
    to = from;
  }
  return to;
}

void write(const ordered_json& document) { std::ofstream("/dev/null") << document.dump(0); }

void scan_file_without_components(benchmark::State& state) {
  Ensemble_list ensembles;
  fill(ensembles, static_cast<int>(state.range(0)), 0);
  for (auto _ : state) (void)ensembles.save_to_file();
}

void service_list(benchmark::State& state) {
  Service_list source(static_cast<int>(state.range(0)), 0);
  for (auto _ : state) {
    std::stringstream out;
    (void)source.list.json_print_data(out);
    benchmark::DoNotOptimize(out);
  }
}

template <class Action>
double megabytes_allocated(Action action) {
  allocated_bytes = 0;
  action();
  return static_cast<double>(allocated_bytes) / 1e6;
}

constexpr int few_services = 10;
constexpr std::array service_counts{few_services, 1, 40, 85, most_services};

/// How the time of one service changes with their number, in rows.
void show_growth(const Timings& timings, const std::string& benchmark, const std::string& what,
                 double lists) {
  const auto each_us = [&](int services) {
    return timings.ns(benchmark, services) / 1e3 / lists / services;
  };
  for (const auto services : service_counts) {
    if (services == few_services) continue;
    row(("A service of " + std::to_string(services) + what + "; of " + std::to_string(few_services))
            .c_str(),
        each_us(services), each_us(few_services), "us");
  }
}

}  // namespace

int main() {
  Ensemble_list ensembles;
  fill(ensembles, most_with_component, 1);
  const auto text = saved_text(ensembles);
  const auto document = ordered_json::parse(text);

  const auto add = [](const char* name, auto action) {
    benchmark::RegisterBenchmark(name, [action](benchmark::State& state) {
      for (auto _ : state) action();
    });
    return action;
  };
  const auto kestrel = add("kestrel", [&] { (void)ensembles.save_to_file(); });
  const auto library = add("library", [&] {
    decode(ensembles);
    write(build(document));
  });
  add("library, built", [&] { write(document); });
  for (const auto services : service_counts) {
    benchmark::RegisterBenchmark("file", scan_file_without_components)->Arg(services);
    benchmark::RegisterBenchmark("list", service_list)->Arg(services);
  }
  const Timings timings;

  const double kestrel_ms = timings.ns("kestrel") / 1e6;
  const double library_ms = timings.ns("library") / 1e6;
  row("Scan file of 48 full lists; nlohmann::ordered_json", kestrel_ms, library_ms, "ms", "≤ 0.2");
  row("Scan file; the library, document already built", kestrel_ms,
      timings.ns("library, built") / 1e6, "ms");
  const double kilobytes = static_cast<double>(text.size()) / 1e3;
  std::printf("| Scan file, a second; the library | %.0f MB | %.0f MB | | |\n",
              kilobytes / kestrel_ms, kilobytes / library_ms);
  row("Scan file, allocated; the library", megabytes_allocated(kestrel),
      megabytes_allocated(library), "MB");
  show_growth(timings, "list", ", `-g`", 1);
  show_growth(timings, "file", ", scan file", Ensemble_list::slots);
}
