// SPDX-License-Identifier: Apache-2.0
// What a run proves: which requests the BMC accepted, and how its tasks ended.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_FACTS_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_FACTS_H_

#include <string>
#include <vector>

#include "tools/quorvane/run/run.h"

namespace quorvane::tool {

/// What the BMC did with the requests of a kind; the strongest answer counts.
enum class Answer { kNone, kNotSent, kRejected, kInDoubt, kAccepted };

/// What the task of an update or an activation proves.
enum class TaskEnd {
  kCompleted,
  kStaged,        ///< Waits for a reboot.
  kFailed,        ///< Its state is a failure.
  kCritical,      ///< Completed or staged, with a critical status or message.
  kTimedOut,      ///< Polling ended before the task.
  kPollsRefused,  ///< The same, because the BMC refused the login.
  kGoneLate,      ///< HTTP 404 from 50 % on.
  kGoneEarly,     ///< HTTP 404 below 50 %.
  kUnreadable,    ///< Completed, but the rest of the task cannot be read.
  kUndecided,     ///< Only a rule ended polling, its state is no end.
  kUnfinished,    ///< The log ends first.
};

/// A verdict states nothing that does not follow from these.
struct Facts {
  const Run& run;
  Answer image = Answer::kNone;
  Answer activation = Answer::kNone;
  Answer reboot = Answer::kNone;
  const PhaseRun* bad_task = nullptr;  ///< The first that proves no success.
  bool is_staged = false;
  bool has_task = false;  ///< Of the last request that started a change.
  /// The run broke off before the activation of an uploaded image.
  bool lacks_activation = false;
};

Facts FactsOf(const Run& run);

TaskEnd EndOf(const PhaseRun& task);

/// Whether further polls of a task can show more than `end`.
bool IsOpen(TaskEnd end);

/// The tasks of the update and its activation in their order, each with the
/// polls that tell most about it: a continued run polls a task again, and so
/// does the library after an activation without a task of its own.
std::vector<const PhaseRun*> TasksOf(const Run& run);

/// Whether a request that can change the BMC left the host, at least in part.
bool HasSentRequest(const Run& run);

/// Whether the image, or the request to download it, left the host at least in
/// part.
bool HasSentImage(const Run& run);

/// Whether the inventory was requested before the update, and the BMC answered
/// none of these requests.
bool IsInventoryUnanswered(const Run& run);

/// Whether the BMC has no such endpoint.
bool IsMissing(const ChangeRequest& request);

/// @{ For `LastRejection`; see also `SendsImage`.
bool IsActivation(Phase phase);
bool IsReboot(Phase phase);
/// @}

/// The answer that ended the phases for which `is_included`: a missing endpoint
/// only if there is no other rejection. nullptr if nothing was rejected.
const ChangeRequest* LastRejection(const Run& run, bool (*is_included)(Phase));

/// Why a reboot of the system could do harm now, e.g. "the task may still run";
/// empty if all tasks succeeded, are staged, or disappeared late.
std::string ReasonAgainstReboot(const Run& run);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_FACTS_H_
