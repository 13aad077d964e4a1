// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/facts.h"

#include <algorithm>
#include <vector>

#include "tools/quorvane/base/http_status.h"

namespace quorvane::tool {
namespace {

using Fate = ChangeRequest::Fate;

// A gateway lost the response of the service behind it.
bool IsFromGateway(const ChangeRequest& request) {
  return request.status == kHttpBadGateway ||
         request.status == kHttpGatewayTimeout;
}

Answer AnswerTo(const ChangeRequest& request) {
  switch (request.fate) {
    case Fate::kPlanned:
      return Answer::kNone;
    case Fate::kNotSent:
      return Answer::kNotSent;
    case Fate::kSending:
    case Fate::kNoResponse:
      return Answer::kInDoubt;
    case Fate::kAnswered:
      if (request.WasAccepted()) return Answer::kAccepted;
      return IsFromGateway(request) ? Answer::kInDoubt : Answer::kRejected;
  }
  return Answer::kNone;
}

template <typename IsIncluded>
Answer AnswerTo(const Run& run, IsIncluded is_included) {
  Answer strongest = Answer::kNone;
  for (const ChangeRequest& request : run.requests) {
    if (is_included(request.phase)) {
      strongest = std::max(strongest, AnswerTo(request));
    }
  }
  return strongest;
}

Answer AnswerTo(const Run& run, Phase phase) {
  return AnswerTo(run, [phase](Phase one) { return one == phase; });
}

// The states in which a task does not continue, without success (DSP2046,
// TaskState). No rule makes a success of them.
bool IsFailure(const std::string& state) {
  return state == "Exception" || state == "Killed" || state == "Cancelled";
}

bool IsCritical(const TaskReport& report) {
  return report.status == "Critical" || !report.critical.empty();
}

TaskEnd EndOfDecided(const PhaseRun& task, const std::string& state) {
  if (IsFailure(state)) return TaskEnd::kFailed;
  const bool is_success = task.result == PhaseResult::kSucceeded;
  if (state != "Completed") {
    return is_success || state != "Interrupted" ? TaskEnd::kUndecided
                                                : TaskEnd::kFailed;
  }
  if (!is_success) return TaskEnd::kUndecided;
  if (task.report.is_unreadable) return TaskEnd::kUnreadable;
  return IsCritical(task.report) ? TaskEnd::kCritical : TaskEnd::kCompleted;
}

// Whether the BMC answered an activation with 202.
bool PromisesTask(const Run& run) {
  return std::any_of(
      run.requests.begin(), run.requests.end(), [](const ChangeRequest& one) {
        return one.phase == Phase::kActivation && one.status == kHttpAccepted;
      });
}

// Many BMCs delete a task some time after its end.
bool IsGone(TaskEnd end) {
  return end == TaskEnd::kGoneLate || end == TaskEnd::kGoneEarly;
}

// Why a reboot could do harm after `task`; nullptr if it cannot.
const char* ReasonAgainstReboot(const PhaseRun& task) {
  switch (EndOf(task)) {
    case TaskEnd::kCompleted:
    case TaskEnd::kStaged:
    case TaskEnd::kGoneLate:  // the library counts it as a success
      return nullptr;
    case TaskEnd::kFailed:
      return "the task failed";
    case TaskEnd::kCritical:
      return "the task reports a critical problem";
    case TaskEnd::kUnreadable:
      return "the status of the task cannot be read";
    case TaskEnd::kTimedOut:
    case TaskEnd::kPollsRefused:
    case TaskEnd::kUndecided:
    case TaskEnd::kUnfinished:
      return "the task may still run";
    case TaskEnd::kGoneEarly:
      return "the task disappeared before it reported 50 %";
  }
  return nullptr;
}

}  // namespace

TaskEnd EndOf(const PhaseRun& task) {
  const std::string state = task.task.empty() ? "" : task.task.back().state;
  switch (task.result) {
    case PhaseResult::kSucceeded:
    case PhaseResult::kFailed:
      return EndOfDecided(task, state);
    case PhaseResult::kStaged:
      // The library also takes a task that stays in Starting for staged.
      if (state != "Scheduled") return TaskEnd::kUndecided;
      return IsCritical(task.report) ? TaskEnd::kCritical : TaskEnd::kStaged;
    case PhaseResult::kNotFoundLate:
      return TaskEnd::kGoneLate;
    case PhaseResult::kNotFoundEarly:
      return TaskEnd::kGoneEarly;
    case PhaseResult::kTimedOut:
      return task.failed_poll == kHttpUnauthorized ? TaskEnd::kPollsRefused
                                                   : TaskEnd::kTimedOut;
    case PhaseResult::kOpen:
    case PhaseResult::kInterrupted:
    case PhaseResult::kAccepted:
    case PhaseResult::kRejected:
      break;
  }
  return TaskEnd::kUnfinished;
}

Facts FactsOf(const Run& run) {
  Facts facts{.run = run,
              .image = AnswerTo(run, SendsImage),
              .activation = AnswerTo(run, Phase::kActivation),
              .reboot = AnswerTo(run, Phase::kReboot)};
  std::vector<std::string> polled;
  for (const PhaseRun& phase : run.phases) {
    if (SendsImage(phase.phase) ||
        (phase.phase == Phase::kActivation && PromisesTask(run))) {
      facts.has_task = false;
    }
    if (phase.phase != Phase::kTask || phase.task_of == Phase::kReboot) {
      continue;
    }
    const TaskEnd end = EndOf(phase);
    // The library polls the task of the upload again if the activation names
    // none. A success of that task proves nothing about the activation, but
    // the BMC can continue the task, which then ends in another way.
    const bool is_polled_again =
        std::find(polled.begin(), polled.end(), phase.uri) != polled.end();
    if (is_polled_again && IsGone(end)) continue;
    if (!is_polled_again) {
      polled.push_back(phase.uri);
      facts.has_task = true;
    }
    facts.is_staged = facts.is_staged || end == TaskEnd::kStaged;
    if (facts.bad_task == nullptr && end != TaskEnd::kCompleted &&
        end != TaskEnd::kStaged) {
      facts.bad_task = &phase;
    }
  }
  return facts;
}

bool HasSentRequest(const Run& run) {
  return std::any_of(
      run.requests.begin(), run.requests.end(), [](const auto& one) {
        return one.fate != Fate::kPlanned && one.fate != Fate::kNotSent;
      });
}

bool IsInventoryUnanswered(const Run& run) {
  bool is_unanswered = false;
  for (const PhaseRun& phase : run.phases) {
    if (phase.phase != Phase::kInventory) continue;
    for (const Span& span : phase.spans) {
      if (span.kind != Span::Kind::kRequest) continue;
      if (span.status != 0) return false;
      is_unanswered = true;
    }
  }
  return is_unanswered;
}

bool IsMissing(const ChangeRequest& request) {
  return request.status == kHttpNotFound ||
         request.status == kHttpMethodNotAllowed;
}

bool IsActivation(Phase phase) { return phase == Phase::kActivation; }
bool IsReboot(Phase phase) { return phase == Phase::kReboot; }

const ChangeRequest* LastRejection(const Run& run, bool (*is_included)(Phase)) {
  const ChangeRequest* rejection = nullptr;
  for (const ChangeRequest& request : run.requests) {
    if (!is_included(request.phase) || AnswerTo(request) != Answer::kRejected) {
      continue;
    }
    const bool has_other = rejection != nullptr && !IsMissing(*rejection);
    if (!IsMissing(request) || !has_other) rejection = &request;
  }
  return rejection;
}

std::string ReasonAgainstReboot(const Run& run) {
  const Facts facts = FactsOf(run);
  if (facts.image != Answer::kAccepted) {
    return "the BMC did not accept the image";
  }
  for (const PhaseRun& phase : run.phases) {
    if (phase.phase != Phase::kTask || phase.task_of == Phase::kReboot) {
      continue;
    }
    if (const char* reason = ReasonAgainstReboot(phase)) return reason;
  }
  if (facts.activation != Answer::kNone &&
      facts.activation != Answer::kAccepted) {
    return "the BMC did not accept the activation";
  }
  return facts.has_task ? "" : "no task shows that the firmware was installed";
}

}  // namespace quorvane::tool
