// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_FUZZ_PROPERTY_H_
#define QUORVANE_FUZZ_PROPERTY_H_

#include <cstdio>
#include <cstdlib>

/// What must hold for every input; a fuzzer keeps the input for which it does
/// not.
inline void Demand(bool holds, const char* property) {
  if (holds) return;
  static_cast<void>(std::fprintf(stderr, "does not hold: %s\n", property));
  std::abort();
}

#endif  // QUORVANE_FUZZ_PROPERTY_H_
