// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_LOG_CLOCK_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_LOG_CLOCK_H_

#include "tools/quorvane/run/events.h"

namespace quorvane::tool {

/// The times of the events in a log, although its stamps are of a clock that
/// can be set, and that daylight saving time shifts. Times never decrease.
class LogClock {
 public:
  double TimeOf(const Event& event) {
    double time = event.time + shift_;
    if (event.kind == EventKind::kElapsed && event.elapsed >= 0) {
      time = begin_ + event.elapsed;
    }
    if (time < last_) time = last_;
    if (event.kind == EventKind::kRunTitle ||
        event.kind == EventKind::kContinued) {
      begin_ = time;
    }
    shift_ = time - event.time;
    last_ = time;
    return time;
  }

 private:
  double begin_ = 0;
  double shift_ = 0;
  double last_ = 0;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_LOG_CLOCK_H_
