// SPDX-License-Identifier: Apache-2.0
#include "bench/comparison.h"

#include <cjson/cJSON.h>
#include <curl/curl.h>
#include <spdlog/version.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <thread>

namespace quorvane::bench {
namespace {

constexpr const char* kCost = "cost";
constexpr const char* kReference = "reference";
constexpr const char* kRatio = "ratio";

void Measure(benchmark::State& state, const Comparison& comparison,
             bool& is_warm) {
  double cost = 0;
  double reference_cost = 0;
  try {
    if (!is_warm && comparison.repetitions > 1) {
      comparison.cost();
      comparison.reference_cost();
    }
    is_warm = true;
    while (state.KeepRunning()) {
      const double single_cost = comparison.cost();
      cost += single_cost;
      reference_cost += comparison.reference_cost();
      state.SetIterationTime(single_cost);
    }
  } catch (const std::exception& failure) {
    state.SkipWithError(failure.what());
    return;
  }
  state.counters[kCost] = cost / comparison.pairs;
  state.counters[kReference] = reference_cost / comparison.pairs;
  state.counters[kRatio] = cost / reference_cost;
}

std::vector<double> Sorted(
    const std::vector<benchmark::BenchmarkReporter::Run>& runs,
    const char* counter) {
  std::vector<double> values;
  for (const auto& run : runs) {
    if (const auto found = run.counters.find(counter);
        found != run.counters.end()) {
      values.push_back(found->second);
    }
  }
  std::sort(values.begin(), values.end());
  return values;
}

double Median(const std::vector<double>& sorted) {
  return sorted[sorted.size() / 2];
}

std::string ProcessorName() {
  std::ifstream lines("/proc/cpuinfo");
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("model name", 0) != 0) continue;
    return line.substr(line.find(": ") + 2);
  }
  return "unknown";
}

std::string LoadAverage() {
  std::string load;
  std::ifstream("/proc/loadavg") >> load;
  return load;
}

std::string Today() {
  const std::time_t now = std::time(nullptr);
  std::array<char, 16> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d", std::gmtime(&now));
  return text.data();
}

// A time is shown in s, ms or µs.
std::string FormatCost(double value, const std::string& unit) {
  std::array<char, 32> text{};
  const bool is_short = unit == "s" && value < 1;
  const bool is_tiny = is_short && value < 1e-3;
  const double scale = is_tiny ? 1e6 : is_short ? 1e3 : 1;
  const char* shown_unit = is_tiny ? "µs" : is_short ? "ms" : unit.c_str();
  std::snprintf(text.data(), text.size(),
                value * scale < 100 ? "%.3g %s" : "%.0f %s", value * scale,
                shown_unit);
  return text.data();
}

}  // namespace

void Register(const std::vector<Comparison>& comparisons) {
  for (const Comparison& comparison : comparisons) {
    benchmark::RegisterBenchmark(
        comparison.name.c_str(),
        [&comparison, is_warm = false](benchmark::State& state) mutable {
          Measure(state, comparison, is_warm);
        })
        ->Iterations(comparison.pairs)
        ->Repetitions(comparison.repetitions)
        ->ReportAggregatesOnly(false)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
}

double CpuSecondsOf(const std::function<void()>& call) {
  const auto now = [] {
    timespec spent{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &spent);
    return static_cast<double>(spent.tv_sec) +
           static_cast<double>(spent.tv_nsec) * 1e-9;
  };
  const double before = now();
  call();
  return now() - before;
}

TableReporter::TableReporter(const std::vector<Comparison>& comparisons)
    : ConsoleReporter(OO_Tabular), comparisons_(comparisons) {
  SetOutputStream(&std::cerr);
}

void TableReporter::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  // The aggregates are reported in a separate call.
  if (runs.front().run_type != Run::RT_Iteration) return;
  const std::string& name = runs.front().run_name.function_name;
  const auto comparison =
      std::find_if(comparisons_.begin(), comparisons_.end(),
                   [&name](const auto& each) { return each.name == name; });
  const std::vector<double> ratios = Sorted(runs, kRatio);
  if (comparison == comparisons_.end() || ratios.empty()) {
    has_failed_ = true;
    return;
  }
  Add({.comparison = &*comparison,
       .cost = Median(Sorted(runs, kCost)),
       .reference_cost = Median(Sorted(runs, kReference)),
       .min = ratios.front(),
       .median = Median(ratios),
       .max = ratios.back()});
}

void TableReporter::Add(const Row& row) {
  const auto same =
      std::find_if(rows_.begin(), rows_.end(), [&row](const Row& each) {
        return each.comparison->measure == row.comparison->measure;
      });
  if (same == rows_.end()) {
    rows_.push_back(row);
  } else if (same->median < row.median) {
    *same = row;
  }
}

bool TableReporter::HasPassed() const {
  return !has_failed_ &&
         std::none_of(rows_.begin(), rows_.end(),
                      [](const Row& row) { return row.IsMissed(); });
}

void TableReporter::Finalize() {
  std::printf(
      "Measured on %s: %s, %u cores, load average %s at the end; compiler "
      "%s; %s; cJSON %s; spdlog %d.%d.%d.\n\n",
      Today().c_str(), ProcessorName().c_str(),
      std::thread::hardware_concurrency(), LoadAverage().c_str(),
      QUORVANE_BENCH_COMPILER, curl_version(), cJSON_Version(),
      SPDLOG_VER_MAJOR, SPDLOG_VER_MINOR, SPDLOG_VER_PATCH);
  std::puts(
      "| measurement | reference | cost | cost of the reference | ratio | "
      "range | bound | |\n|---|---|---|---|---|---|---|---|");
  for (const Row& row : rows_) {
    const Comparison& comparison = *row.comparison;
    std::printf("| %s | %s | %s | %s | %.2f | %.2f to %.2f | ",
                comparison.measure.c_str(), comparison.reference.c_str(),
                FormatCost(row.cost, comparison.unit).c_str(),
                FormatCost(row.reference_cost, comparison.unit).c_str(),
                row.median, row.min, row.max);
    if (comparison.bound > 0) std::printf("%.2f", comparison.bound);
    std::puts(comparison.bound == 0 ? " | |"
              : row.IsMissed()      ? " | **missed** |"
                                    : " | met |");
  }
  if (has_failed_)
    std::puts("\nSome measurements **failed** and are not shown.");
}

}  // namespace quorvane::bench
