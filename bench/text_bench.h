// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_BENCH_TEXT_BENCH_H_
#define QUORVANE_BENCH_TEXT_BENCH_H_

#include <string>
#include <vector>

#include "bench/comparison.h"

namespace quorvane::bench {

/// Text processing in this process: responses, log lines, masking, redaction
/// and the rules file.
/// @param directory  Receives the files of the benchmarks.
/// @param bmc        Address of the BMC that sends the responses.
std::vector<Comparison> TextComparisons(const std::string& directory,
                                        const std::string& bmc);

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_TEXT_BENCH_H_
