// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

#include "bench/comparison.h"
#include "bench/process.h"
#include "bench/text_bench.h"
#include "bench/wire_bench.h"

namespace {

namespace bench = quorvane::bench;

// Without this, malloc(3) maps each block of 128 KiB or more anew. The page
// faults then make a text of 1 MiB look more expensive per byte than one of
// 64 KiB, whatever is done with it.
void KeepFreedMemory() {
  constexpr int kNever = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, kNever);
  mallopt(M_TRIM_THRESHOLD, kNever);
}

int RunAll(int argc, char** argv) {
  KeepFreedMemory();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  const bench::WorkFolder folder;
  const bench::InstantBmc bmc(bench::kFewMembers);
  const bench::InstantBmc big_bmc(bench::kManyMembers);
  std::vector<bench::Comparison> all =
      bench::WireComparisons(folder.path(), bmc.address(), big_bmc.address());
  for (bench::Comparison& comparison :
       bench::TextComparisons(folder.path(), bmc.address())) {
    all.push_back(std::move(comparison));
  }
  bench::Register(all);
  bench::TableReporter table(all);
  benchmark::RunSpecifiedBenchmarks(&table);
  return table.IsGood() ? 0 : 1;
}

}  // namespace

// Ends with 1 when a bound was missed.
int main(int argc, char** argv) {
  try {
    return RunAll(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorvane_bench: %s\n", failure.what());
    return 2;
  }
}
