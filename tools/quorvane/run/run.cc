// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/run.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quorvane::tool {
namespace {

// Phases whose request the BMC accepts or rejects.
bool NeedsAcceptance(Phase phase) {
  return phase == Phase::kUpload || phase == Phase::kBinaryUpload ||
         phase == Phase::kSimpleUpdate || phase == Phase::kActivation ||
         phase == Phase::kReboot;
}

// Reasons of libcurl for which no request leaves the host.
bool WasNeverConnected(const std::string& reason) {
  constexpr std::array kReasons = {"Couldn't connect to server",
                                   "Couldn't resolve host name",
                                   "SSL connect error"};
  return std::any_of(kReasons.begin(), kReasons.end(), [&](const char* one) {
    return reason.find(one) != std::string::npos;
  });
}

}  // namespace

const PhaseRun* Run::Last(Phase phase) const {
  const auto found =
      std::find_if(phases.rbegin(), phases.rend(),
                   [phase](const PhaseRun& one) { return one.phase == phase; });
  return found == phases.rend() ? nullptr : &*found;
}

std::string Run::Detail(std::string_view name) const {
  const auto found =
      std::find_if(details.begin(), details.end(),
                   [name](const auto& one) { return one.first == name; });
  return found == details.end() ? std::string() : found->second;
}

void RunBuilder::Add(const Event& event) {
  if (run_.begin == 0) {
    run_.begin = event.time;
    run_.begin_stamp = event.stamp;
  }
  run_.end = event.time;
  run_.end_stamp = event.stamp;
  if (run_.IsVerifying() && event.kind != EventKind::kInterrupted &&
      event.kind != EventKind::kContinued) {
    return AddVerification(event);
  }
  Dispatch(event);
}

// A table of all kinds of events, which the compiler checks for missing ones.
// NOLINTNEXTLINE(readability-function-size)
void RunBuilder::Dispatch(const Event& event) {
  switch (KindOf(event)) {
    case EventKind::kOther:
    case EventKind::kMembersFound:
      return;
    case EventKind::kMemberUnread:
      if (!run_.was_continued) {
        run_.firmware.unread_before.push_back(event.uri);
      }
      return AddRemark(event);
    case EventKind::kNoMembers:
    case EventKind::kProblem:
      return AddRemark(event);
    case EventKind::kRunTitle:
      BeginRun(event);
      run_.title = event.text;
      return;
    case EventKind::kContinued:
      return Continue(event);
    case EventKind::kRunDetail:
      return AddDetail(event);
    case EventKind::kFirmwareBefore:
    case EventKind::kFirmwareAfter:
      return AddMember(event);
    case EventKind::kUpdateNotNeeded:
      run_.is_not_needed = true;
      return;
    case EventKind::kVerification:
    case EventKind::kVerificationEnds:
      return;  // in a log whose beginning is missing
    case EventKind::kVerificationSkipped:
      run_.verification.skipped = event.text;
      return;
    case EventKind::kUpdateBegins:
      if (run_.is_update || (run_.title.empty() && !run_.phases.empty())) {
        BeginRun(event);
      }
      run_.is_update = true;
      return;
    case EventKind::kElapsed:
      return;
    case EventKind::kWorkerDied:
      run_.worker_failure = event.text;
      return;
    case EventKind::kOutcome:
      run_.verdict = LoggedVerdict{.outcome = event.text};
      return;
    case EventKind::kCause:
      if (run_.verdict) run_.verdict->cause = event.text;
      return;
    case EventKind::kNextStep:
      if (run_.verdict) run_.verdict->next = event.text;
      return;
    case EventKind::kInterrupted:
      return Interrupt(event);
    case EventKind::kRunEnds:
      // A run of the tool makes several calls of the library.
      if (run_.title.empty()) EndRun(event);
      return;
    case EventKind::kFinished:
      return EndRun(event);
    case EventKind::kPhaseBegins:
      if (event.phase == Phase::kVerification) {
        run_.verification.has_begun = true;
        run_.verification.limit_seconds = event.seconds;
      }
      return BeginPhase(event.phase, event);
    case EventKind::kAttemptBegins:
      return AddAttempt(event);
    case EventKind::kRequestSent:
      return AddRequest(event);
    case EventKind::kRequestNotSent:
      if (ChangeRequest* request = CurrentRequest()) {
        request->fate = ChangeRequest::Fate::kNotSent;
      }
      return;
    case EventKind::kBytesSent:
      if (Span* span = CurrentSpan()) {
        span->sent = event.sent;
        span->total = event.total;
      }
      return;
    case EventKind::kBodySent:
      if (Span* span = CurrentSpan()) span->is_sent = true;
      if (ChangeRequest* request = CurrentRequest()) {
        request->is_complete = true;
      }
      return;
    case EventKind::kResponseReceived:
      run_.any_response = true;
      return CloseSpan(event.time, event.status);
    case EventKind::kRequestFailed:
      return AddFailure(event);
    case EventKind::kStatus:
      return AddStatus(event);
    case EventKind::kBody:
      return AddBody(event.text);
    case EventKind::kWaitBegins:
      CurrentPhase().attempt = event.index + 1;
      // Without debug records, nothing shows when the wait ends.
      PlanRequest(CurrentPhase().uri, has_requests_
                                          ? ChangeRequest::Fate::kPlanned
                                          : ChangeRequest::Fate::kSending);
      return OpenSpan(Span::Kind::kRetryWait, event);
    case EventKind::kLoginRefused:
      return AddRefusedLogin(event);
    case EventKind::kInventoryRead:
      run_.items_read = event.count;
      CurrentPhase().result = PhaseResult::kSucceeded;
      return;
    case EventKind::kUploadsRejected:
      CurrentPhase().result = PhaseResult::kRejected;
      return;
    case EventKind::kNoTask:
      CurrentPhase().result = PhaseResult::kAccepted;
      return;
    case EventKind::kRebootSkipped:
      ResolveRequest(PhaseResult::kAccepted);
      EndPhase(event.time);
      run_.reboot_skipped = true;
      return;
    case EventKind::kRebootWithheld:
      run_.reboot_withheld = event.text;
      return;
    case EventKind::kTaskBegins:
      return BeginPhase(Phase::kTask, event);
    case EventKind::kPollInterval:
      CurrentPhase().poll_seconds = event.seconds;
      return;
    case EventKind::kPollBegins:
      return AddPoll(event);
    case EventKind::kPollFailed:
      CloseSpan(event.time, event.status);
      CurrentPhase().failed_poll = event.status;
      return AddRemark(event);
    case EventKind::kTaskState:
      return AddTaskState(event);
    case EventKind::kTaskBody:
      CurrentPhase().report = ReadTask(event.text);
      return;
    case EventKind::kTaskSucceeded:
      return EndTask(event, PhaseResult::kSucceeded);
    case EventKind::kTaskFailed:
      return EndTask(event, PhaseResult::kFailed);
    case EventKind::kTaskStaged:
      return EndTask(event, PhaseResult::kStaged);
    case EventKind::kTaskNotFoundLate:
      return EndTask(event, PhaseResult::kNotFoundLate);
    case EventKind::kTaskNotFoundEarly:
      return EndTask(event, PhaseResult::kNotFoundEarly);
  }
}

// What was requested, and how far it came, stays; how the run ended does not.
void RunBuilder::Continue(const Event& event) {
  if (!run_.phases.empty()) {
    PhaseRun& last = run_.phases.back();
    EndPhase(last.end);
    if (last.result == PhaseResult::kOpen) {
      last.result = PhaseResult::kInterrupted;
    }
  }
  if (run_.title.empty()) run_.title = event.text;
  run_.was_continued = true;
  run_.was_interrupted = run_.is_complete = run_.reboot_skipped = false;
  run_.worker_failure.clear();
  run_.reboot_withheld.clear();
  run_.transfer_failure.clear();
  run_.login_refused = 0;
  run_.items_read = -1;
  run_.verification = {};
  run_.verdict.reset();
  has_requests_ = false;
  for (FirmwareMember& member : run_.firmware.members) member.after.reset();
  // What follows belongs to no request of the run.
  run_.phases.push_back(
      {.phase = Phase::kWatch, .begin = event.time, .end = event.time});
}

void RunBuilder::AddDetail(const Event& event) {
  const bool is_list = event.name == "Target" || event.name == "Expect" ||
                       event.name == "Unlisted target";
  const auto known = std::find_if(
      run_.details.begin(), run_.details.end(),
      [&event](const auto& one) { return one.first == event.name; });
  if (!is_list && known != run_.details.end()) {
    known->second = event.text;  // a continued run states it again
  } else {
    run_.details.emplace_back(event.name, event.text);
  }
  if (event.name == "Unlisted target") {
    run_.firmware.unlisted_targets.push_back(event.text);
  }
  if (event.name == "Expect") {
    if (auto expectation = ExpectationFrom(event.text)) {
      std::erase_if(run_.firmware.expectations, [&](const Expectation& one) {
        return one.name == expectation->name;
      });
      run_.firmware.expectations.push_back(*std::move(expectation));
    }
  }
}

void RunBuilder::AddMember(const Event& event) {
  const auto [found, is_new] =
      members_.emplace(event.uri, run_.firmware.members.size());
  if (is_new) run_.firmware.members.push_back({.uri = event.uri});
  FirmwareMember& member = run_.firmware.members[found->second];
  if (!event.name.empty()) member.name = event.name;
  if (event.kind == EventKind::kFirmwareAfter) {
    member.after = event.version;
    return;
  }
  member.before = event.version;
  member.is_targeted = event.is_targeted;
}

// The library logs each reading of the inventory like the first one. What it
// reports must not change what is known about the update itself.
void RunBuilder::AddVerification(const Event& event) {
  Verification& seen = run_.verification;
  switch (event.kind) {
    case EventKind::kPhaseBegins:  // the library reads the inventory
      seen.unread.clear();
      seen.is_empty = false;
      seen.status = -1;
      return;
    case EventKind::kRequestSent:
      return OpenSpan(Span::Kind::kRequest, event);
    case EventKind::kResponseReceived:
      return CloseSpan(event.time, event.status);
    case EventKind::kRequestFailed:
      return CloseSpan(event.time, 0);
    case EventKind::kStatus:
      seen.status = event.status;
      return;
    case EventKind::kMemberUnread:
      seen.unread.push_back(event.uri);
      return;
    case EventKind::kNoMembers:
      seen.is_empty = true;
      return;
    case EventKind::kLoginRefused:
      seen.refused = event.status;
      return;
    case EventKind::kVerification:
      seen.state = event.text;
      return AddRemark(event);
    case EventKind::kVerificationEnds:
      seen.end = event.text;
      CurrentPhase().result = PhaseResult::kSucceeded;
      return AddRemark(event);
    case EventKind::kRunTitle:
    case EventKind::kRunDetail:
    case EventKind::kUpdateBegins:
    case EventKind::kFirmwareAfter:
    case EventKind::kFinished:
    case EventKind::kWorkerDied:
    case EventKind::kOutcome:
    case EventKind::kCause:
    case EventKind::kNextStep:
      return Dispatch(event);
    default:
      return;
  }
}

Run RunBuilder::Ended() const {
  RunBuilder copy = *this;
  copy.EndRun({.time = run_.end});
  return std::move(copy.run_);
}

void RunBuilder::Interrupt(const Event& event) {
  run_.was_interrupted = true;
  if (run_.phases.empty()) return;
  CloseSpan(event.time, -1);
  PhaseRun& last = run_.phases.back();
  if (last.result == PhaseResult::kOpen) {
    last.result = PhaseResult::kInterrupted;
  }
}

void RunBuilder::AddRefusedLogin(const Event& event) {
  run_.login_refused = event.status;
  run_.any_response = true;
  // The worker sends no request after a refused login.
  ChangeRequest* request = CurrentRequest();
  if (request != nullptr && request->fate == ChangeRequest::Fate::kSending) {
    request->fate = ChangeRequest::Fate::kNotSent;
  }
  CurrentPhase().result = PhaseResult::kRejected;
  AddRemark(event);
}

void RunBuilder::EndRun(const Event& event) {
  EndPhase(event.time);
  ResolveRequest(PhaseResult::kRejected);
  run_.is_complete = true;
}

// The first record after a poll is the state, which the BMC chooses: it may
// look like a result.
EventKind RunBuilder::KindOf(const Event& event) {
  if (event.phase != Phase::kTask) return event.kind;
  const bool is_state = std::exchange(awaits_state_, false);
  const bool looks_like_result = event.kind == EventKind::kTaskSucceeded ||
                                 event.kind == EventKind::kTaskFailed;
  return is_state && looks_like_result ? EventKind::kTaskState : event.kind;
}

// Only what follows a request shows whether the BMC accepted it.
void RunBuilder::ResolveRequest(PhaseResult result) {
  if (run_.phases.empty()) return;
  PhaseRun& last = run_.phases.back();
  if (NeedsAcceptance(last.phase) && last.result == PhaseResult::kOpen) {
    last.result = result;
  }
}

void RunBuilder::BeginRun(const Event& event) {
  // The tool logs the title of a run before the library starts it.
  const bool is_announced = !run_.is_update && run_.phases.empty();
  const std::string title = is_announced ? run_.title : std::string();
  const int earlier = run_.earlier_runs + (is_announced ? 0 : 1);
  run_ = Run{};
  members_.clear();
  run_.title = title;
  run_.earlier_runs = earlier;
  run_.begin = run_.end = event.time;
  run_.begin_stamp = run_.end_stamp = event.stamp;
}

void RunBuilder::BeginPhase(Phase phase, const Event& event) {
  // An upload was accepted if the next phase is not another upload.
  const bool follows_success = phase == Phase::kTask ||
                               phase == Phase::kActivation ||
                               phase == Phase::kReboot;
  Phase task_of = Phase::kNone;
  if (!run_.phases.empty()) {
    PhaseRun& previous = run_.phases.back();
    task_of = previous.phase;
    if (task_of == Phase::kDownload && previous.result == PhaseResult::kOpen) {
      previous.result = PhaseResult::kSucceeded;
    }
    ResolveRequest(follows_success ? PhaseResult::kAccepted
                                   : PhaseResult::kRejected);
  }
  if (task_of == Phase::kWatch || task_of == Phase::kTask) {
    task_of = RequestOfTask(event.uri);
  }
  EndPhase(event.time);
  PhaseRun begun{.phase = phase,
                 .task_of = phase == Phase::kTask ? task_of : Phase::kNone,
                 .begin = event.time,
                 .end = event.time,
                 .uri_count = event.count};
  begun.uri = event.uri;
  run_.phases.push_back(std::move(begun));
  if (phase == Phase::kDownload) OpenSpan(Span::Kind::kRequest, event);
}

// The phase whose task the run polled before it was continued.
Phase RunBuilder::RequestOfTask(const std::string& uri) const {
  const auto polled = std::find_if(
      run_.phases.begin(), run_.phases.end(), [&uri](const PhaseRun& one) {
        return one.phase == Phase::kTask && one.uri == uri;
      });
  return polled == run_.phases.end() ? Phase::kNone : polled->task_of;
}

void RunBuilder::EndPhase(double time) {
  if (run_.phases.empty()) return;
  PhaseRun& last = run_.phases.back();
  CloseSpan(time, -1);
  last.end = std::max(last.end, last.begin);
  if (last.result == PhaseResult::kOpen &&
      (last.phase == Phase::kInventory || last.phase == Phase::kDownload)) {
    last.result = PhaseResult::kFailed;
  }
  if (last.phase == Phase::kNone && last.result == PhaseResult::kOpen) {
    last.result =
        run_.any_response ? PhaseResult::kSucceeded : PhaseResult::kFailed;
  }
  if (last.phase == Phase::kWatch && last.result == PhaseResult::kOpen) {
    const bool has_failed =
        !last.spans.empty() &&
        std::all_of(last.spans.begin(), last.spans.end(),
                    [](const Span& one) { return one.status <= 0; });
    last.result = has_failed ? PhaseResult::kFailed : PhaseResult::kSucceeded;
  }
  if (last.phase == Phase::kTask && last.result == PhaseResult::kOpen &&
      !last.spans.empty()) {
    // The library does not log that the polls ran out; the next phase begins.
    const auto poll = std::find_if(
        last.spans.rbegin(), last.spans.rend(),
        [](const Span& one) { return one.kind == Span::Kind::kPollWait; });
    if (poll != last.spans.rend() && poll->index == poll->count) {
      last.result = PhaseResult::kTimedOut;
    }
  }
}

PhaseRun& RunBuilder::CurrentPhase() {
  if (run_.phases.empty()) {
    run_.phases.push_back({.begin = run_.end, .end = run_.end});
  }
  return run_.phases.back();
}

Span* RunBuilder::CurrentSpan() {
  if (run_.phases.empty() || run_.phases.back().spans.empty()) return nullptr;
  Span& last = run_.phases.back().spans.back();
  return last.is_open ? &last : nullptr;
}

void RunBuilder::OpenSpan(Span::Kind kind, const Event& event) {
  CloseSpan(event.time, -1);
  PhaseRun& phase = CurrentPhase();
  phase.end = event.time;
  phase.spans.push_back({.kind = kind,
                         .begin = event.time,
                         .end = event.time,
                         .is_open = true,
                         .planned_seconds = std::max(event.seconds, 0),
                         .index = event.index,
                         .count = event.count,
                         .verb = event.verb,
                         .uri = event.uri.empty() ? phase.uri : event.uri});
}

void RunBuilder::CloseSpan(double time, long status) {
  if (CurrentSpan() == nullptr) return;
  Span& open = *CurrentSpan();
  open.is_open = false;
  open.end = std::max(time, open.begin);
  CurrentPhase().end = open.end;
  if (open.kind == Span::Kind::kRequest) {
    if (status >= 0) open.status = status;
    return;
  }
  // Without debug records, nothing shows when the wait ends and its request
  // begins.
  const double planned_end = open.begin + open.planned_seconds;
  open.end = std::min(open.end, planned_end);
  if (status < 0) return;
  const Span request{.kind = Span::Kind::kRequest,
                     .begin = open.end,
                     .end = std::max(time, open.end),
                     .uri = open.uri,
                     .status = status};
  CurrentPhase().spans.push_back(request);
}

void RunBuilder::AddRemark(const Event& event) {
  PhaseRun& phase = CurrentPhase();
  phase.end = std::max(phase.end, event.time);
  phase.remarks.push_back(
      {.time = event.time, .level = event.level, .text = event.text});
}

void RunBuilder::AddAttempt(const Event& event) {
  PhaseRun& phase = CurrentPhase();
  phase.uri = event.uri;
  phase.uri_index = event.index;
  phase.uri_count = event.count;
  phase.attempt = 1;
  PlanRequest(event.uri, ChangeRequest::Fate::kSending);
  OpenSpan(Span::Kind::kRequest, event);
}

void RunBuilder::AddRequest(const Event& event) {
  has_requests_ = true;
  if (ChangeRequest* request = CurrentRequest()) {
    request->fate = ChangeRequest::Fate::kSending;
  }
  Span* open = CurrentSpan();
  if (open == nullptr || open->kind != Span::Kind::kRequest ||
      !open->verb.empty()) {
    return OpenSpan(Span::Kind::kRequest, event);
  }
  open->verb = event.verb;
  open->begin = open->end = event.time;
}

void RunBuilder::AddPoll(const Event& event) {
  Event poll = event;
  poll.seconds = CurrentPhase().poll_seconds;
  OpenSpan(Span::Kind::kPollWait, poll);
  awaits_state_ = true;
}

void RunBuilder::AddTaskState(const Event& event) {
  run_.any_response = true;
  CloseSpan(event.time, 200);
  CurrentPhase().failed_poll = -1;
  PhaseRun& task = CurrentPhase();
  task.task.push_back({event.time, event.percent, event.state});
  task.end = event.time;
}

void RunBuilder::EndTask(const Event& event, PhaseResult result) {
  CloseSpan(event.time, -1);
  PhaseRun& task = CurrentPhase();
  task.result = result;
  task.end = event.time;
  AddRemark(event);
}

void RunBuilder::AddStatus(const Event& event) {
  PhaseRun& phase = CurrentPhase();
  CloseSpan(event.time, event.status);
  phase.end = std::max(phase.end, event.time);
  if (event.status > 0) run_.any_response = true;
  const bool is_success = event.status >= 200 && event.status < 300;
  if (is_success && phase.phase == Phase::kReboot) {
    phase.result = PhaseResult::kAccepted;
  }
  ChangeRequest* request = CurrentRequest();
  if (request == nullptr) return;
  request->status = event.status;
  if (event.status > 0) {
    request->fate = ChangeRequest::Fate::kAnswered;
  } else if (request->fate == ChangeRequest::Fate::kSending) {
    request->fate = ChangeRequest::Fate::kNoResponse;
  }
}

void RunBuilder::AddBody(const std::string& body) {
  ChangeRequest* request = CurrentRequest();
  if (request != nullptr && request->status >= 400) {
    request->text = ErrorText(body);
  }
}

void RunBuilder::AddFailure(const Event& event) {
  run_.transfer_failure = event.text;
  CloseSpan(event.time, 0);
  AddRemark(event);
  ChangeRequest* request = CurrentRequest();
  if (request == nullptr || request->fate == ChangeRequest::Fate::kAnswered) {
    return;
  }
  request->text = event.text;
  if (request->fate != ChangeRequest::Fate::kNotSent) {
    // The tool itself logs what was not sent.
    request->fate = run_.title.empty() && WasNeverConnected(event.text)
                        ? ChangeRequest::Fate::kNotSent
                        : ChangeRequest::Fate::kNoResponse;
  }
}

// The last request of the current phase, if it is one that changes the BMC.
ChangeRequest* RunBuilder::CurrentRequest() {
  if (run_.requests.empty() || run_.phases.empty()) return nullptr;
  ChangeRequest& last = run_.requests.back();
  return last.phase == run_.phases.back().phase ? &last : nullptr;
}

void RunBuilder::PlanRequest(const std::string& uri, ChangeRequest::Fate fate) {
  const Phase phase = CurrentPhase().phase;
  if (!NeedsAcceptance(phase)) return;
  run_.requests.push_back({.phase = phase, .uri = uri, .fate = fate});
}

}  // namespace quorvane::tool
