// SPDX-License-Identifier: Apache-2.0
// A figure against its reference, and the table of them all.
#ifndef QUORVANE_BENCH_COMPARISON_H_
#define QUORVANE_BENCH_COMPARISON_H_

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace quorvane::bench {

/// Takes a cost once.
using Cost = std::function<double()>;

/// One row of the table.
struct Comparison {
  std::string name;       ///< For --benchmark_filter, e.g. "upload/form".
  std::string measure;    ///< What the table calls it. Of several rows that
                          ///< share it, the table shows the worst.
  std::string reference;  ///< What it is held against.
  const char* unit;       ///< Of both costs: "s" of CPU time, "MiB", "calls".
  double bound;           ///< The most that cost / reference cost may be; 0:
                          ///< shown beside another row, without a bound.
  Cost cost;
  Cost reference_cost;
  int pairs = 1;        ///< Pairs of costs whose sums make one ratio.
  int repetitions = 7;  ///< Ratios, whose median counts.
};

/// Registers each as a benchmark. The two costs are taken in turn: what slows
/// the machine down meanwhile slows both.
void Register(const std::vector<Comparison>& comparisons);

/// CPU seconds, user and system, that a call takes on all threads.
double CpuSecondsOf(const std::function<void()>& call);

/// The console's lines on standard error as they come; at the end, on standard
/// output, the machine and the table in Markdown.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  /// @param comparisons  As registered; must outlive the reporter.
  explicit TableReporter(const std::vector<Comparison>& comparisons);

  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  /// Was every bound held, and did nothing fail?
  [[nodiscard]] bool IsGood() const;

 private:
  struct Row {
    const Comparison* comparison;
    double cost, reference_cost, least, median, most;
    [[nodiscard]] bool IsMissed() const {
      return comparison->bound > 0 && median > comparison->bound;
    }
  };

  void Add(const Row& row);

  const std::vector<Comparison>& comparisons_;
  std::vector<Row> rows_;
  bool has_failed_ = false;
};

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_COMPARISON_H_
