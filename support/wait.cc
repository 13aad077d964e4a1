// SPDX-License-Identifier: Apache-2.0
#include "support/wait.h"

#include <cerrno>
#include <ctime>

namespace quorvane {

void SleepSeconds(int seconds) {
  if (seconds <= 0) return;
  timespec remaining{.tv_sec = seconds, .tv_nsec = 0};
  while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
  }
}

}  // namespace quorvane
