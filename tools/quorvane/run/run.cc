// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/run.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

// Phases whose request the BMC accepts or rejects.
bool NeedsAcceptance(Phase phase) {
  return phase == Phase::kUpload || phase == Phase::kBinaryUpload ||
         phase == Phase::kSimpleUpdate || phase == Phase::kActivation ||
         phase == Phase::kReboot;
}

bool SendsImage(Phase phase) {
  return phase == Phase::kUpload || phase == Phase::kBinaryUpload ||
         phase == Phase::kSimpleUpdate;
}

std::string TextMember(const Json& object, const char* name) {
  if (!object.is_object()) return {};
  const auto member = object.find(name);
  return member != object.end() && member->is_string()
             ? member->get<std::string>()
             : std::string();
}

const Json& Member(const Json& object, const char* name) {
  static const Json nothing;
  if (!object.is_object()) return nothing;
  const auto member = object.find(name);
  return member != object.end() ? *member : nothing;
}

// More than a user reads, and little enough to search for repeats.
constexpr std::size_t kMaxTextBytes = 4096;

void AppendText(std::string& text, const std::string& more) {
  if (text.size() > kMaxTextBytes || more.empty() ||
      text.find(more) != std::string::npos) {
    return;
  }
  if (!text.empty()) text += ' ';
  text += more.substr(0, kMaxTextBytes);
}

void AppendMessages(std::string& text, const Json& messages) {
  if (!messages.is_array()) return;
  for (const Json& message : messages) {
    const std::string own = TextMember(message, "Message");
    AppendText(text, own.empty() ? TextMember(message, "MessageId") : own);
  }
}

}  // namespace

std::string ErrorText(const std::string& body) {
  const Json response = Json::parse(body, nullptr, false);
  if (response.is_discarded()) {
    constexpr std::size_t kMaxBytes = 200;
    return body.substr(0, kMaxBytes);
  }
  const Json& error = Member(response, "error");
  std::string text = TextMember(error, "message");
  AppendMessages(text, Member(error, "@Message.ExtendedInfo"));
  AppendMessages(text, Member(response, "@Message.ExtendedInfo"));
  AppendText(text, TextMember(response, "Message"));
  return text;
}

std::string TaskMessages(const std::string& body) {
  std::string text;
  AppendMessages(text, Member(Json::parse(body, nullptr, false), "Messages"));
  return text;
}

const PhaseRun* Run::Last(Phase phase) const {
  const auto found =
      std::find_if(phases.rbegin(), phases.rend(),
                   [phase](const PhaseRun& one) { return one.phase == phase; });
  return found == phases.rend() ? nullptr : &*found;
}

bool Run::WasAccepted() const {
  return std::any_of(phases.begin(), phases.end(), [](const PhaseRun& one) {
    return SendsImage(one.phase) && one.result == PhaseResult::kAccepted;
  });
}

// A table of all kinds of events, which the compiler checks for missing ones.
// NOLINTNEXTLINE(readability-function-size)
void RunBuilder::Add(const Event& event) {
  if (run_.begin == 0) run_.begin = event.time;
  run_.end = event.time;
  switch (KindOf(event)) {
    case EventKind::kOther:
    case EventKind::kMembersFound:
      return;
    case EventKind::kNoMembers:
    case EventKind::kMemberUnread:
    case EventKind::kProblem:
      return AddRemark(event);
    case EventKind::kRunTitle:
      BeginRun(event);
      run_.title = event.text;
      return;
    case EventKind::kUpdateBegins:
      if (run_.is_update || !run_.phases.empty()) BeginRun(event);
      run_.is_update = true;
      return;
    case EventKind::kInterrupted:
      run_.was_interrupted = true;
      return;
    case EventKind::kRunEnds:
      EndPhase(event.time);
      ResolveRequest(PhaseResult::kRejected);
      run_.is_complete = true;
      return;
    case EventKind::kPhaseBegins:
      return BeginPhase(event.phase, event);
    case EventKind::kAttemptBegins:
      return AddAttempt(event);
    case EventKind::kRequestSent:
      return AddRequest(event);
    case EventKind::kResponseReceived:
      run_.any_response = true;
      return CloseSpan(event.time, event.status);
    case EventKind::kRequestFailed:
      run_.transfer_failure = event.text;
      CloseSpan(event.time, 0);
      return AddRemark(event);
    case EventKind::kStatus:
      return AddStatus(event);
    case EventKind::kBody:
      return AddRejectionText(event.text);
    case EventKind::kWaitBegins:
      CurrentPhase().attempt = event.index + 1;
      return OpenSpan(Span::Kind::kRetryWait, event);
    case EventKind::kLoginRefused:
      run_.login_refused = event.status;
      CurrentPhase().result = PhaseResult::kRejected;
      return AddRemark(event);
    case EventKind::kInventoryRead:
      run_.items_read = event.count;
      CurrentPhase().result = PhaseResult::kSucceeded;
      return;
    case EventKind::kUploadsRejected:
      CurrentPhase().result = PhaseResult::kRejected;
      return;
    case EventKind::kNoTask:
      run_.has_no_task = true;
      CurrentPhase().result = PhaseResult::kAccepted;
      return;
    case EventKind::kRebootSkipped:
      ResolveRequest(PhaseResult::kAccepted);
      EndPhase(event.time);
      run_.reboot_skipped = true;
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
      return AddRemark(event);
    case EventKind::kTaskState:
      return AddTaskState(event);
    case EventKind::kTaskBody:
      if (std::string text = TaskMessages(event.text); !text.empty()) {
        run_.task_messages = std::move(text);
      }
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
  run_.title = title;
  run_.earlier_runs = earlier;
  run_.begin = run_.end = event.time;
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
  // A rejection before a success is not the cause of a later failure.
  if (follows_success) run_.first_rejection.reset();
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

void RunBuilder::EndPhase(double time) {
  if (run_.phases.empty()) return;
  PhaseRun& last = run_.phases.back();
  CloseSpan(time, -1);
  last.end = std::max(last.end, last.begin);
  if (last.result == PhaseResult::kOpen &&
      (last.phase == Phase::kInventory || last.phase == Phase::kDownload)) {
    last.result = PhaseResult::kFailed;
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
  if (run_.phases.empty()) run_.phases.emplace_back();
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
  OpenSpan(Span::Kind::kRequest, event);
}

void RunBuilder::AddRequest(const Event& event) {
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
  // A missing endpoint is the cause only if there is no other rejection.
  const bool is_rejection = event.status >= 400;
  const bool outranks =
      !run_.first_rejection || ((run_.first_rejection->status == 404 ||
                                 run_.first_rejection->status == 405) &&
                                event.status != 404 && event.status != 405);
  if (is_rejection && outranks && phase.phase != Phase::kInventory) {
    run_.first_rejection = Rejection{.phase = phase.phase,
                                     .uri = phase.uri,
                                     .status = event.status,
                                     .text = {}};
  }
}

// The body belongs to the last rejection, not to another one.
void RunBuilder::AddRejectionText(const std::string& body) {
  PhaseRun& phase = CurrentPhase();
  const auto last = std::find_if(
      phase.spans.rbegin(), phase.spans.rend(),
      [](const Span& one) { return one.kind == Span::Kind::kRequest; });
  if (!run_.first_rejection || last == phase.spans.rend()) return;
  Rejection& rejection = *run_.first_rejection;
  if (rejection.text.empty() && rejection.phase == phase.phase &&
      rejection.uri == phase.uri && rejection.status == last->status) {
    rejection.text = ErrorText(body);
  }
}

}  // namespace quorvane::tool
