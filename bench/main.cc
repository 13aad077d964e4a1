// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

#include "bench/comparison.h"
#include "bench/network_bench.h"
#include "bench/process.h"
#include "bench/text_bench.h"

namespace {

namespace bench = quorvane::bench;

// By default, malloc(3) creates a new mapping for each block of 128 KiB or
// more. The page faults would make a text of 1 MiB more expensive per byte than
// a text of 64 KiB.
void KeepFreedMemory() {
  constexpr int kNever = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, kNever);
  mallopt(M_TRIM_THRESHOLD, kNever);
}

int RunAll(int argc, char** argv) {
  KeepFreedMemory();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  const bench::TempDirectory directory;
  const bench::InstantBmc bmc(bench::kFewMembers);
  const bench::InstantBmc big_bmc(bench::kManyMembers);
  std::vector<bench::Comparison> all = bench::NetworkComparisons(
      directory.Path(), bmc.Address(), big_bmc.Address());
  for (bench::Comparison& comparison :
       bench::TextComparisons(directory.Path(), bmc.Address())) {
    all.push_back(std::move(comparison));
  }
  bench::Register(all);
  bench::TableReporter table(all);
  benchmark::RunSpecifiedBenchmarks(&table);
  return table.HasPassed() ? 0 : 1;
}

}  // namespace

// Exits with 1 if a bound is missed.
int main(int argc, char** argv) {
  try {
    return RunAll(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorvane_bench: %s\n", failure.what());
    return 2;
  }
}
