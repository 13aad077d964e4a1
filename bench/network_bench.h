// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_BENCH_NETWORK_BENCH_H_
#define QUORVANE_BENCH_NETWORK_BENCH_H_

#include <string>
#include <vector>

#include "bench/comparison.h"

namespace quorvane::bench {

/// The cost of processes that communicate with a BMC over TLS.
/// @param directory  Receives the files of the benchmarks.
/// @param bmc        Address of a BMC with `kFewMembers`.
/// @param big_bmc    Address of a BMC with `kManyMembers`.
std::vector<Comparison> NetworkComparisons(const std::string& directory,
                                           const std::string& bmc,
                                           const std::string& big_bmc);

inline constexpr int kFewMembers = 3;
inline constexpr int kManyMembers = 200;

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_NETWORK_BENCH_H_
