// SPDX-License-Identifier: Apache-2.0
// Comparisons of a cost with a reference, and the table of results.
#ifndef QUORVANE_BENCH_COMPARISON_H_
#define QUORVANE_BENCH_COMPARISON_H_

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace quorvane::bench {

/// Measures a cost once.
using Cost = std::function<double()>;

/// One row of the table.
struct Comparison {
  std::string name;       ///< For --benchmark_filter: "upload/multipart".
  std::string measure;    ///< The name in the table, which shows the worst of
                          ///< all comparisons with the same name.
  std::string reference;  ///< The name of the reference in the table.
  const char* unit;       ///< Of both costs: "s" of CPU time, "MiB", "calls".
  double bound;           ///< Maximum of cost / reference cost; 0: no bound,
                          ///< the row is shown for comparison.
  Cost cost;
  Cost reference_cost;
  int pairs = 1;        ///< Pairs of costs that are added for one ratio.
  int repetitions = 7;  ///< Number of ratios; the median counts.
};

/// Registers each comparison as a benchmark. The two costs are measured
/// alternately, so that a machine that slows down affects both.
void Register(const std::vector<Comparison>& comparisons);

/// CPU seconds, user and system, that a call takes on all threads.
double CpuSecondsOf(const std::function<void()>& call);

/// Prints each result to standard error. At the end, prints the machine and the
/// table in Markdown to standard output.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  /// @param comparisons  Must outlive the reporter.
  explicit TableReporter(const std::vector<Comparison>& comparisons);

  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  /// Every bound was met, and nothing failed.
  [[nodiscard]] bool HasPassed() const;

 private:
  struct Row {
    const Comparison* comparison;
    double cost, reference_cost, min, median, max;
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
