// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_FUZZ_PROPERTY_H_
#define QUORVANE_FUZZ_PROPERTY_H_

#include <cstdio>
#include <cstdlib>

/// Aborts if a property that must hold for every input does not. The fuzzer
/// then saves the input.
inline void CheckProperty(bool holds, const char* property) {
  if (holds) return;
  static_cast<void>(std::fprintf(stderr, "Violated property: %s\n", property));
  std::abort();
}

#endif  // QUORVANE_FUZZ_PROPERTY_H_
