// SPDX-License-Identifier: Apache-2.0
// The tool's own word on an update.
//
// The library's record tells its last step ("Reboot successful"); whether the
// firmware was updated follows from the whole run. A task that timed out or
// vanished early, and a system that was restarted all the same, is no success.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_

#include <cstddef>
#include <optional>
#include <string>

#include "tools/quorvane/base/exit_code.h"
#include "tools/quorvane/run/run.h"

namespace quorvane::tool {

/// The parts of the library's record that a log might have wrong: a BMC can
/// forge log lines in a response body, but not this.
struct LibraryRecord {
  bool accepted = false;
  bool restart_accepted = false;
};

struct Verdict {
  enum class Outcome {
    kDone,
    kStaged,  ///< Taken; applied at a restart still to come.
    kFailed,  ///< Refused, or tried and failed.
    kUnknown,
    kUnreachable,
    kLoginRefused,
    kInterrupted,
    kNoUpdate,  ///< The log holds no update.
  };
  Outcome outcome = Outcome::kUnknown;
  std::string headline = {};  ///< What happened; one sentence.
  std::string cause =
      {};  ///< The BMC's words or the first reason; may be empty.
  std::string next = {};  ///< What to do; may be empty.
};

/// @param record  What the library returned; nothing when only a log is left.
Verdict JudgeRun(const Run& run, const std::optional<LibraryRecord>& record);

/// Outcome, cause and what to do, in lines shorter than `columns`; 0: a line
/// each.
std::string TextOf(const Verdict& verdict, std::size_t columns);

/// "done", "staged", ...
const char* NameOf(Verdict::Outcome outcome);
ExitCode ExitCodeOf(Verdict::Outcome outcome);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_
