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
      return nullptr;
    case TaskEnd::kGoneLate:
      // The library counts it as a success. A continued run did not see the
      // end.
      return task.task.empty() ? "the task disappeared before its end was read"
                               : nullptr;
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

bool IsUpload(Phase phase) {
  return phase == Phase::kUpload || phase == Phase::kBinaryUpload;
}

bool IsUpdateTask(const PhaseRun& phase) {
  return phase.phase == Phase::kTask && phase.task_of != Phase::kReboot;
}

// Whether polls that ended with `later` count instead of earlier ones of the
// same task.
bool Replaces(TaskEnd later, TaskEnd earlier) {
  return !IsGone(later) || IsOpen(earlier);
}

}  // namespace

bool IsOpen(TaskEnd end) {
  switch (end) {
    case TaskEnd::kTimedOut:
    case TaskEnd::kPollsRefused:
    case TaskEnd::kUndecided:
    case TaskEnd::kUnfinished:
      return true;
    case TaskEnd::kCompleted:
    case TaskEnd::kStaged:
    case TaskEnd::kFailed:
    case TaskEnd::kCritical:
    case TaskEnd::kGoneLate:
    case TaskEnd::kGoneEarly:
    case TaskEnd::kUnreadable:
      break;
  }
  return false;
}

std::vector<const PhaseRun*> TasksOf(const Run& run) {
  std::vector<const PhaseRun*> tasks;
  for (const PhaseRun& phase : run.phases) {
    if (!IsUpdateTask(phase)) continue;
    const auto known = std::find_if(
        tasks.begin(), tasks.end(),
        [&phase](const auto* one) { return one->uri == phase.uri; });
    if (known == tasks.end()) {
      tasks.push_back(&phase);
    } else if (Replaces(EndOf(phase), EndOf(**known)) ||
               (run.was_continued && EndOf(**known) == TaskEnd::kStaged)) {
      *known = &phase;
    }
  }
  return tasks;
}

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
    // The library polls the task of the upload again if the activation names
    // none; that proves nothing about the activation.
    const bool is_new =
        std::find(polled.begin(), polled.end(), phase.uri) == polled.end();
    if (!IsUpdateTask(phase) || !is_new) continue;
    polled.push_back(phase.uri);
    facts.has_task = true;
  }
  for (const PhaseRun* task : TasksOf(run)) {
    const TaskEnd end = EndOf(*task);
    facts.is_staged = facts.is_staged || end == TaskEnd::kStaged;
    if (facts.bad_task == nullptr && end != TaskEnd::kCompleted &&
        end != TaskEnd::kStaged) {
      facts.bad_task = task;
    }
  }
  // `quorvane watch --task` follows a task that another program started.
  if (facts.image == Answer::kNone && facts.has_task) {
    facts.image = Answer::kAccepted;
  }
  facts.lacks_activation = run.was_continued && !run.Detail("Target").empty() &&
                           facts.activation == Answer::kNone &&
                           AnswerTo(run, IsUpload) == Answer::kAccepted;
  return facts;
}

bool HasSentRequest(const Run& run) {
  return std::any_of(
      run.requests.begin(), run.requests.end(), [](const auto& one) {
        return one.fate != Fate::kPlanned && one.fate != Fate::kNotSent;
      });
}

bool HasSentImage(const Run& run) {
  const Answer image = FactsOf(run).image;
  return image != Answer::kNone && image != Answer::kNotSent;
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
  if (facts.image == Answer::kInDoubt) {
    return "it is not known whether the BMC accepted the image";
  }
  if (facts.image != Answer::kAccepted) {
    return "the BMC did not accept the image";
  }
  for (const PhaseRun* task : TasksOf(run)) {
    if (const char* reason = ReasonAgainstReboot(*task)) return reason;
  }
  if (facts.lacks_activation) return "the activation was not requested";
  if (facts.activation == Answer::kInDoubt) {
    return "it is not known whether the BMC accepted the activation";
  }
  if (facts.activation != Answer::kNone &&
      facts.activation != Answer::kAccepted) {
    return "the BMC did not accept the activation";
  }
  return facts.has_task ? "" : "no task shows that the firmware was installed";
}

}  // namespace quorvane::tool
