// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_BENCH_TEXT_BENCH_H_
#define QUORVANE_BENCH_TEXT_BENCH_H_

#include <string>
#include <vector>

#include "bench/comparison.h"

namespace quorvane::bench {

/// What the library does with texts, in this process: answers, log lines,
/// addresses, the rules file. `folder` takes their files.
/// @param bmc  Address of the BMC that gives the answers.
std::vector<Comparison> TextComparisons(const std::string& folder,
                                        const std::string& bmc);

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_TEXT_BENCH_H_
