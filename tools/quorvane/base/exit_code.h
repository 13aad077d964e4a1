// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_EXIT_CODE_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_EXIT_CODE_H_

namespace quorvane::tool {

/// Exit status of the tool. Scripts rely on the numbers, see quorvane(1).
enum class ExitCode {
  kDone = 0,         ///< Updated, current, staged or done.
  kFailed = 1,       ///< The update failed, or a check found faults.
  kUsage = 2,        ///< Wrong usage, or an unusable rules file.
  kUnreachable = 3,  ///< The BMC did not respond or refused the login.
  kUnknown = 4,      ///< Unknown or unchanged, or an incomplete list.
  kNotRecorded = 5,  ///< Done, but the log or the result is incomplete.
  kInterrupted = 130,
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_EXIT_CODE_H_
