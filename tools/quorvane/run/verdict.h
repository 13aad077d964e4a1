// SPDX-License-Identifier: Apache-2.0
// The outcome of an update, as the tool judges it.
//
// The library's result describes its last step ("Reboot successful"). Whether
// the firmware was updated follows from the whole run: from what was sent, what
// the BMC answered, and how its tasks ended. No rule of the rules file makes a
// success of a missing response, an HTTP error or a failed task.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_

#include <array>
#include <cstddef>
#include <string>

#include "tools/quorvane/base/exit_code.h"
#include "tools/quorvane/run/run.h"

namespace quorvane::tool {

struct Verdict {
  enum class Outcome {
    kUpdated,    ///< The versions show the update.
    kCurrent,    ///< The expected versions were installed before, and are.
    kDone,       ///< The BMC reports success; no versions were compared.
    kStaged,     ///< Accepted; a later reboot applies it.
    kUnchanged,  ///< The BMC reports success, but no version changed.
    kMismatch,   ///< Versions changed, but not to the expected ones.
    kFailed,     ///< The BMC rejected it, or reported a failure.
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

inline constexpr std::array kOutcomes = {
    Verdict::Outcome::kUpdated,     Verdict::Outcome::kCurrent,
    Verdict::Outcome::kDone,        Verdict::Outcome::kStaged,
    Verdict::Outcome::kUnchanged,   Verdict::Outcome::kMismatch,
    Verdict::Outcome::kFailed,      Verdict::Outcome::kUnknown,
    Verdict::Outcome::kUnreachable, Verdict::Outcome::kLoginRefused,
    Verdict::Outcome::kInterrupted, Verdict::Outcome::kNoUpdate};

/// What the requests and tasks of an update say, before versions are compared.
enum class Claim {
  kNone,         ///< Nothing that versions could show: e.g. a rejected image.
  kSuccess,      ///< The BMC reports success.
  kStaged,       ///< The firmware waits for a reboot, and none was requested.
  kOpen,         ///< Neither success nor failure.
  kCritical,     ///< A task completed with a critical problem.
  kTaskFailure,  ///< A task failed.
  kFailed,       ///< The activation or the reboot failed.
};
Claim ClaimOf(const Run& run);

/// Whether versions can still change after the run, without another request.
bool CanStillChange(const Run& run);

/// Whether firmware that waits for a reboot can still be applied, without
/// another request.
bool CanApplyPending(const Run& run);

/// The verdict on a run. If the tool logged one, it is that one.
Verdict JudgeRun(const Run& run);

/// Outcome with the address of the BMC, cause and next step, in lines shorter
/// than `columns`; 0: one line each.
std::string TextOf(const Verdict& verdict, const std::string& bmc,
                   std::size_t columns);

/// "done", "staged", ...
const char* NameOf(Verdict::Outcome outcome);
/// For JSON: "done", "login_refused", ...
std::string IdOf(Verdict::Outcome outcome);
ExitCode ExitCodeOf(Verdict::Outcome outcome);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_VERDICT_H_
