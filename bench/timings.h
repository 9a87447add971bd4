// SPDX-License-Identifier: GPL-3.0-or-later
//
// Runs the registered benchmarks several times, in random order, and keeps the best of each: what
// else a shared machine does only ever adds to a time.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <vector>

/// Processor time of one iteration in ns, by name of the benchmark, such as "library/25".
class Timings : public benchmark::BenchmarkReporter {
 public:
  /// Run them all.
  Timings() {
    std::string program = "bench";
    std::string repetitions = "--benchmark_repetitions=15";
    std::string time = "--benchmark_min_time=0.03";
    std::string order = "--benchmark_enable_random_interleaving=true";
    std::array arguments{program.data(), repetitions.data(), time.data(), order.data()};
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    (void)benchmark::RunSpecifiedBenchmarks(this);
  }

  [[nodiscard]] double ns(const std::string& name) const { return best_ns_.at(name); }
  [[nodiscard]] double ns(const std::string& name, std::int64_t argument) const {
    return ns(name + '/' + std::to_string(argument));
  }

 private:
  bool ReportContext(const Context& /*context*/) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const double ns = run.GetAdjustedCPUTime();
      const auto [best, is_first] = best_ns_.try_emplace(run.benchmark_name(), ns);
      if (!is_first) best->second = std::min(best->second, ns);
    }
  }

  std::map<std::string, double> best_ns_;
};
