// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_BENCH_WIRE_BENCH_H_
#define QUORVANE_BENCH_WIRE_BENCH_H_

#include <string>
#include <vector>

#include "bench/comparison.h"

namespace quorvane::bench {

/// What whole processes cost that speak to a BMC over TLS. `folder` takes their
/// files.
/// @param bmc      Address of a BMC with `kFewMembers`.
/// @param big_bmc  Address of a BMC with `kManyMembers`.
std::vector<Comparison> WireComparisons(const std::string& folder,
                                        const std::string& bmc,
                                        const std::string& big_bmc);

inline constexpr int kFewMembers = 3;
inline constexpr int kManyMembers = 200;

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_WIRE_BENCH_H_
