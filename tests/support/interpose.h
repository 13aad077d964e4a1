// SPDX-License-Identifier: Apache-2.0
// Replaces functions of libc in the test program.
#ifndef QUORVANE_TESTS_SUPPORT_INTERPOSE_H_
#define QUORVANE_TESTS_SUPPORT_INTERPOSE_H_

#include <optional>
#include <string>
#include <vector>

namespace quorvane::test {

/// During its lifetime, nanosleep(2) on this thread returns at once, and its
/// seconds are recorded. Other threads really sleep.
class RecordedWaits {
 public:
  RecordedWaits();
  ~RecordedWaits();
  RecordedWaits(const RecordedWaits&) = delete;
  RecordedWaits& operator=(const RecordedWaits&) = delete;

  /// A signal interrupts the next waits, each after one second.
  void InterruptNext(int times);
  [[nodiscard]] const std::vector<long>& seconds() const { return seconds_; }

 private:
  friend int Sleep(RecordedWaits& waits, const timespec* requested,
                   timespec* remaining);
  std::vector<long> seconds_;
  int interruptions_ = 0;
};

/// Sets the path that dladdr(3) returns for the code of the library. Empty: the
/// real one, which is the test program. Nothing: dladdr fails.
void OverrideLibraryPath(std::optional<std::string> file);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_INTERPOSE_H_
