// SPDX-License-Identifier: Apache-2.0
// Calls of libc that the test program answers itself.
#ifndef QUORVANE_TESTS_SUPPORT_INTERPOSE_H_
#define QUORVANE_TESTS_SUPPORT_INTERPOSE_H_

#include <optional>
#include <string>
#include <vector>

namespace quorvane::test {

/// While it lives, nanosleep(2) on this thread returns at once and the seconds
/// that were asked for are kept. Other threads sleep as they always did.
class RecordedWaits {
 public:
  RecordedWaits();
  ~RecordedWaits();
  RecordedWaits(const RecordedWaits&) = delete;
  RecordedWaits& operator=(const RecordedWaits&) = delete;

  /// The next waits are broken off by a signal, each after one second.
  void InterruptNext(int times);
  [[nodiscard]] const std::vector<long>& seconds() const { return seconds_; }

 private:
  friend int Sleep(RecordedWaits& waits, const timespec* wanted,
                   timespec* left);
  std::vector<long> seconds_;
  int interruptions_ = 0;
};

/// What dladdr(3) names as the file that holds the library's code. Empty: the
/// truth, which is the test program. Nothing: dladdr fails.
void PretendLibraryFile(std::optional<std::string> file);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_INTERPOSE_H_
