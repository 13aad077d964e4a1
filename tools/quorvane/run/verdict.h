// SPDX-License-Identifier: Apache-2.0
// The outcome of an update, as the tool judges it.
//
// The library's result describes its last step ("Reboot successful"). Whether
// the firmware was updated follows from the whole run: an update is not done if
// its task timed out or disappeared early, even if the system was rebooted.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_

#include <cstddef>
#include <optional>
#include <string>

#include "tools/quorvane/base/exit_code.h"
#include "tools/quorvane/run/run.h"

namespace quorvane::tool {

/// The parts of the library's result that decide over the log: a BMC can forge
/// log lines in a response body, but not these.
struct LibraryRecord {
  bool accepted = false;
  bool reboot_accepted = false;
};

struct Verdict {
  enum class Outcome {
    kDone,
    kStaged,  ///< Accepted; a later reboot applies it.
    kFailed,  ///< Rejected, or accepted and failed.
    kUnknown,
    kUnreachable,
    kLoginRefused,
    kInterrupted,
    kNoUpdate,  ///< The log contains no update.
  };
  Outcome outcome = Outcome::kUnknown;
  std::string headline = {};  ///< What happened; one sentence.
  std::string cause =
      {};  ///< The text of the BMC, or the first reason; may be empty.
  std::string next = {};  ///< What to do; may be empty.
};

/// @param record  What the library returned; nothing if there is only a log.
Verdict JudgeRun(const Run& run, const std::optional<LibraryRecord>& record);

/// Outcome, cause and next step, in lines shorter than `columns`; 0: one line
/// each.
std::string TextOf(const Verdict& verdict, std::size_t columns);

/// "done", "staged", ...
const char* NameOf(Verdict::Outcome outcome);
ExitCode ExitCodeOf(Verdict::Outcome outcome);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_
