// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_EXIT_CODE_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_EXIT_CODE_H_

namespace quorvane::tool {

/// How the tool ends; quorvane(1) promises these numbers to scripts.
enum class ExitCode {
  kDone = 0,         ///< Done, or staged, which is said.
  kFailed = 1,       ///< The update was refused or failed; or lint findings.
  kUsage = 2,        ///< Wrong usage, or rules that cannot be used.
  kUnreachable = 3,  ///< The BMC gave no answer or refused the login.
  kUnknown = 4,      ///< Nobody can tell from here; look at the machine.
  kInterrupted = 130,
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_EXIT_CODE_H_
