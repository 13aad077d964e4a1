// SPDX-License-Identifier: Apache-2.0
// Makes calls of libc fail on the thread under test: the n-th of a kind, or all
// from the n-th on. For a program of its own, not built with a sanitizer: it
// replaces malloc(3) and friends.
#ifndef QUORVANE_TESTS_SUPPORT_FAULT_INJECTION_H_
#define QUORVANE_TESTS_SUPPORT_FAULT_INJECTION_H_

#include <cstddef>
#include <string>
#include <vector>

namespace quorvane::test {

/// What may fail.
enum class CallKind {
  kMemory,   ///< Allocations of the library, libcurl, cJSON and libstdc++.
  kFiles,    ///< open, read, write, fstat, flock and their like.
  kNetwork,  ///< socket, connect, send, recv, poll and their like.
};

struct Fault {
  CallKind kind = CallKind::kMemory;
  std::size_t nth = 0;    ///< Counted from 1; 0: none fails.
  bool for_good = false;  ///< So do all that follow.
};

/// While it lives, the calls of the constructing thread suffer `fault`, and
/// what that thread writes to standard output and standard error is kept
/// instead. Other threads are left alone. One at a time.
///
/// Allocations of the TLS library, which answers for itself, are not counted
/// and do not fail.
class FaultInjection {
 public:
  explicit FaultInjection(const Fault& fault);
  ~FaultInjection();
  FaultInjection(const FaultInjection&) = delete;
  FaultInjection& operator=(const FaultInjection&) = delete;

  /// Ends the faults; what happened can be asked from here on.
  void End();
  [[nodiscard]] std::size_t calls() const;  ///< Of the kind, so far.
  /// The call that failed first, e.g. "unlink" or "malloc of libcurl.so.4";
  /// empty if none did.
  [[nodiscard]] std::string struck_call() const;
  [[nodiscard]] std::string console() const;
  /// The library, or the program, behind each counted block that was made
  /// meanwhile and is not freed to this hour.
  [[nodiscard]] std::vector<std::string> LiveBlocks() const;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_FAULT_INJECTION_H_
