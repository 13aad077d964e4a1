// SPDX-License-Identifier: Apache-2.0
// Makes calls of libc fail on the thread under test: the n-th call of a kind,
// or all calls from the n-th on. Needs a separate program without a sanitizer,
// because it replaces malloc(3) and its relatives.
#ifndef QUORVANE_TESTS_SUPPORT_FAULT_INJECTION_H_
#define QUORVANE_TESTS_SUPPORT_FAULT_INJECTION_H_

#include <cstddef>
#include <string>
#include <vector>

namespace quorvane::test {

/// The calls that can fail.
enum class CallKind {
  kMemory,   ///< Allocations of the library, libcurl, cJSON and libstdc++.
  kFiles,    ///< open, read, write, fstat, flock and similar calls.
  kNetwork,  ///< socket, connect, send, recv, poll and similar calls.
};

struct Fault {
  CallKind kind = CallKind::kMemory;
  std::size_t nth = 0;      ///< Counted from 1; 0: none fails.
  bool is_lasting = false;  ///< All later calls fail as well.
};

/// During its lifetime, injects `fault` into the calls of the constructing
/// thread, and captures what that thread writes to standard output and standard
/// error. Does not affect other threads. Only one object at a time.
///
/// Allocations of the TLS library are not counted and do not fail.
class FaultInjection {
 public:
  explicit FaultInjection(const Fault& fault);
  ~FaultInjection();
  FaultInjection(const FaultInjection&) = delete;
  FaultInjection& operator=(const FaultInjection&) = delete;

  /// Ends the injection. The functions below are valid from then on.
  void End();
  [[nodiscard]] std::size_t CallCount() const;  ///< Of the kind.
  /// The first call that failed, e.g. "unlink" or "malloc of libcurl.so.4";
  /// empty without one.
  [[nodiscard]] std::string FailedCall() const;
  [[nodiscard]] std::string ConsoleText() const;
  /// The library, or the program, that allocated each counted block that has
  /// not been freed.
  [[nodiscard]] std::vector<std::string> LiveBlocks() const;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_FAULT_INJECTION_H_
