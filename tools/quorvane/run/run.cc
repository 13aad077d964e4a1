// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/run.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;
using Ending = PhaseRun::Ending;

// Phases in which the BMC says yes or no.
bool Asks(Phase phase) {
  return phase == Phase::kUpload || phase == Phase::kBinaryUpload ||
         phase == Phase::kSimpleUpdate || phase == Phase::kActivation ||
         phase == Phase::kRestart;
}

bool TakesImage(Phase phase) {
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

// More than anyone reads, and few enough to look for repeats.
constexpr std::size_t kMaxWordBytes = 4096;

void AddWords(std::string& words, const std::string& more) {
  if (words.size() > kMaxWordBytes || more.empty() ||
      words.find(more) != std::string::npos) {
    return;
  }
  if (!words.empty()) words += ' ';
  words += more.substr(0, kMaxWordBytes);
}

void AddMessages(std::string& words, const Json& messages) {
  if (!messages.is_array()) return;
  for (const Json& message : messages) {
    const std::string text = TextMember(message, "Message");
    AddWords(words, text.empty() ? TextMember(message, "MessageId") : text);
  }
}

}  // namespace

std::string ErrorWords(const std::string& body) {
  const Json answer = Json::parse(body, nullptr, false);
  if (answer.is_discarded()) {
    constexpr std::size_t kMost = 200;
    return body.substr(0, kMost);
  }
  const Json& error = Member(answer, "error");
  std::string words = TextMember(error, "message");
  AddMessages(words, Member(error, "@Message.ExtendedInfo"));
  AddMessages(words, Member(answer, "@Message.ExtendedInfo"));
  AddWords(words, TextMember(answer, "Message"));
  return words;
}

std::string TaskWords(const std::string& body) {
  std::string words;
  AddMessages(words, Member(Json::parse(body, nullptr, false), "Messages"));
  return words;
}

const PhaseRun* Run::Last(Phase phase) const {
  const auto found =
      std::find_if(phases.rbegin(), phases.rend(),
                   [phase](const PhaseRun& one) { return one.phase == phase; });
  return found == phases.rend() ? nullptr : &*found;
}

bool Run::WasTaken() const {
  return std::any_of(phases.begin(), phases.end(), [](const PhaseRun& one) {
    return TakesImage(one.phase) && one.ending == Ending::kTaken;
  });
}

void RunBuilder::Take(const Event& event) {
  if (run_.begin == 0) run_.begin = event.time;
  run_.end = event.time;
  switch (event.kind) {
    case EventKind::kOther:
      return;
    case EventKind::kTrouble:
      Say(event, event.text);
      return;
    case EventKind::kPhaseBegins:
      BeginPhase(event.phase, event);
      return;
    case EventKind::kLoginRefused:
    case EventKind::kItemsRead:
    case EventKind::kNoTask:
    case EventKind::kUploadsRefused:
      TakeEnding(event);
      return;
    case EventKind::kRunNamed:
    case EventKind::kUpdateBegins:
    case EventKind::kRestartLeftOut:
    case EventKind::kRunEnds:
    case EventKind::kInterrupted:
      TakeRunEvent(event);
      return;
    default:
      if (event.phase == Phase::kTask) {
        TakeTaskEvent(event);
      } else {
        TakeRequestEvent(event);
      }
  }
}

// What concerns the run as a whole.
void RunBuilder::TakeRunEvent(const Event& event) {
  switch (event.kind) {
    case EventKind::kRunNamed:
      BeginRun(event);
      run_.title = event.text;
      return;
    case EventKind::kUpdateBegins:
      if (run_.is_update || !run_.phases.empty()) BeginRun(event);
      run_.is_update = true;
      return;
    case EventKind::kRestartLeftOut:
      EndAsking(Ending::kTaken);
      EndPhase(event.time);
      run_.restart_left_out = true;
      return;
    case EventKind::kRunEnds:
      EndPhase(event.time);
      EndAsking(Ending::kRefused);
      run_.is_complete = true;
      return;
    case EventKind::kInterrupted:
      run_.was_interrupted = true;
      return;
    default:
      return;
  }
}

// What ends the phase at hand.
void RunBuilder::TakeEnding(const Event& event) {
  PhaseRun& phase = Current();
  switch (event.kind) {
    case EventKind::kLoginRefused:
      run_.login_refused = event.status;
      phase.ending = Ending::kRefused;
      Say(event, event.text);
      return;
    case EventKind::kItemsRead:
      run_.items_read = event.count;
      phase.ending = Ending::kWell;
      return;
    case EventKind::kNoTask:
      run_.named_no_task = true;
      phase.ending = Ending::kTaken;
      return;
    case EventKind::kUploadsRefused:
      phase.ending = Ending::kRefused;
      return;
    default:
      return;
  }
}

// A phase that asked tells by what follows whether it was granted.
void RunBuilder::EndAsking(PhaseRun::Ending ending) {
  if (run_.phases.empty()) return;
  PhaseRun& last = run_.phases.back();
  if (Asks(last.phase) && last.ending == Ending::kOpen) last.ending = ending;
}

void RunBuilder::BeginRun(const Event& event) {
  // A run that the tool names is announced before the library starts it.
  const bool is_announced = !run_.is_update && run_.phases.empty();
  const std::string title = is_announced ? run_.title : std::string();
  const int earlier = run_.earlier_runs + (is_announced ? 0 : 1);
  run_ = Run{};
  run_.title = title;
  run_.earlier_runs = earlier;
  run_.begin = run_.end = event.time;
}

void RunBuilder::BeginPhase(Phase phase, const Event& event) {
  // An upload was taken if what follows is no other way to upload.
  const bool follows_success = phase == Phase::kTask ||
                               phase == Phase::kActivation ||
                               phase == Phase::kRestart;
  Phase task_of = Phase::kNone;
  if (!run_.phases.empty()) {
    PhaseRun& former = run_.phases.back();
    task_of = former.phase;
    if (task_of == Phase::kDownload && former.ending == Ending::kOpen) {
      former.ending = Ending::kWell;
    }
    EndAsking(follows_success ? Ending::kTaken : Ending::kRefused);
  }
  // What was refused on the way to a success is no cause of a later failure.
  if (follows_success) run_.first_refusal.reset();
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
  if (OpenOne() != nullptr) CloseSpan(time, -1);
  last.end = std::max(last.end, last.begin);
  if (last.ending == Ending::kOpen &&
      (last.phase == Phase::kInventory || last.phase == Phase::kDownload)) {
    last.ending = Ending::kBadly;
  }
  if (last.phase == Phase::kTask && last.ending == Ending::kOpen &&
      !last.spans.empty()) {
    // Nothing is logged when the polls run out; the next phase just begins.
    const auto poll = std::find_if(
        last.spans.rbegin(), last.spans.rend(),
        [](const Span& one) { return one.kind == Span::Kind::kPollWait; });
    if (poll != last.spans.rend() && poll->index == poll->count) {
      last.ending = Ending::kTimedOut;
    }
  }
}

PhaseRun& RunBuilder::Current() {
  if (run_.phases.empty()) run_.phases.emplace_back();
  return run_.phases.back();
}

Span* RunBuilder::OpenOne() {
  if (run_.phases.empty() || run_.phases.back().spans.empty()) return nullptr;
  Span& last = run_.phases.back().spans.back();
  return last.is_open ? &last : nullptr;
}

void RunBuilder::OpenSpan(Span::Kind kind, const Event& event) {
  if (OpenOne() != nullptr) CloseSpan(event.time, -1);
  PhaseRun& phase = Current();
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
  Span& open = *OpenOne();
  open.is_open = false;
  open.end = std::max(time, open.begin);
  Current().end = open.end;
  if (open.kind == Span::Kind::kRequest) {
    if (status >= 0) open.status = status;
    return;
  }
  // Above debug level no line tells when a wait is over and its request begins.
  const double planned_end = open.begin + open.planned_seconds;
  open.end = std::min(open.end, planned_end);
  if (status < 0) return;
  const Span request{.kind = Span::Kind::kRequest,
                     .begin = open.end,
                     .end = std::max(time, open.end),
                     .uri = open.uri,
                     .status = status};
  Current().spans.push_back(request);
}

void RunBuilder::Say(const Event& event, std::string text) {
  PhaseRun& phase = Current();
  phase.end = std::max(phase.end, event.time);
  phase.remarks.push_back(
      {.time = event.time, .level = event.level, .text = std::move(text)});
}

void RunBuilder::TakeRequestEvent(const Event& event) {
  PhaseRun& phase = Current();
  Span* open = OpenOne();
  switch (event.kind) {
    case EventKind::kUriTried:
      phase.uri = event.uri;
      phase.uri_index = event.index;
      phase.uri_count = event.count;
      phase.attempt = 1;
      OpenSpan(Span::Kind::kRequest, event);
      return;
    case EventKind::kRequestSent:
      if (open != nullptr && open->kind == Span::Kind::kRequest &&
          open->verb.empty()) {
        open->verb = event.verb;
        open->begin = open->end = event.time;
      } else {
        OpenSpan(Span::Kind::kRequest, event);
      }
      return;
    case EventKind::kRequestAnswered:
      run_.any_answer = true;
      if (open != nullptr) CloseSpan(event.time, event.status);
      return;
    case EventKind::kRequestFailed:
      run_.transfer_failure = event.text;
      if (open != nullptr) CloseSpan(event.time, 0);
      Say(event, event.text);
      return;
    case EventKind::kWaitBegins:
      phase.attempt = event.index + 1;
      OpenSpan(Span::Kind::kRetryWait, event);
      return;
    case EventKind::kStatus:
      TakeStatus(event);
      return;
    case EventKind::kBody:
      TakeRefusalWords(event.text);
      return;
    default:
      return;
  }
}

void RunBuilder::TakeStatus(const Event& event) {
  PhaseRun& phase = Current();
  if (OpenOne() != nullptr) CloseSpan(event.time, event.status);
  phase.end = std::max(phase.end, event.time);
  if (event.status > 0) run_.any_answer = true;
  const bool is_success = event.status >= 200 && event.status < 300;
  if (is_success && phase.phase == Phase::kRestart) {
    phase.ending = Ending::kTaken;
  }
  // An absent endpoint is no cause while another answer may be.
  const bool is_refusal = event.status >= 400;
  const bool outranks =
      !run_.first_refusal || ((run_.first_refusal->status == 404 ||
                               run_.first_refusal->status == 405) &&
                              event.status != 404 && event.status != 405);
  if (is_refusal && outranks && phase.phase != Phase::kInventory) {
    run_.first_refusal = Refusal{.phase = phase.phase,
                                 .uri = phase.uri,
                                 .status = event.status,
                                 .words = {}};
  }
}

// Only the refusal just told, not a later one, may take these words.
void RunBuilder::TakeRefusalWords(const std::string& body) {
  PhaseRun& phase = Current();
  const auto last = std::find_if(
      phase.spans.rbegin(), phase.spans.rend(),
      [](const Span& one) { return one.kind == Span::Kind::kRequest; });
  if (!run_.first_refusal || last == phase.spans.rend()) return;
  Refusal& refusal = *run_.first_refusal;
  if (refusal.words.empty() && refusal.phase == phase.phase &&
      refusal.uri == phase.uri && refusal.status == last->status) {
    refusal.words = ErrorWords(body);
  }
}

void RunBuilder::TakeTaskEvent(const Event& event) {
  const auto end_task = [&](Ending ending) {
    PhaseRun& task = Current();
    if (OpenOne() != nullptr) CloseSpan(event.time, -1);
    task.ending = ending;
    task.end = event.time;
    Say(event, event.text);
  };
  // After a poll the first line reports the state, which the BMC chose: it may
  // read like a result.
  const bool is_state = std::exchange(awaits_state_, false);
  const bool reads_like_result = event.kind == EventKind::kTaskEndsWell ||
                                 event.kind == EventKind::kTaskEndsBadly;
  switch (is_state && reads_like_result ? EventKind::kTaskState : event.kind) {
    case EventKind::kTaskBegins:
      BeginPhase(Phase::kTask, event);
      return;
    case EventKind::kPollInterval:
      Current().poll_seconds = event.seconds;
      return;
    case EventKind::kPollBegins: {
      Event poll = event;
      poll.seconds = Current().poll_seconds;
      OpenSpan(Span::Kind::kPollWait, poll);
      awaits_state_ = true;
      return;
    }
    case EventKind::kTaskState:
      run_.any_answer = true;
      if (OpenOne() != nullptr) CloseSpan(event.time, 200);
      Current().task.push_back({event.time, event.percent, event.state});
      Current().end = event.time;
      return;
    case EventKind::kTaskBody:
      if (std::string words = TaskWords(event.text); !words.empty()) {
        run_.task_words = std::move(words);
      }
      return;
    case EventKind::kPollFailed:
      if (OpenOne() != nullptr) CloseSpan(event.time, event.status);
      Say(event, event.text);
      return;
    case EventKind::kTaskEndsWell:
      return end_task(Ending::kWell);
    case EventKind::kTaskEndsBadly:
      return end_task(Ending::kBadly);
    case EventKind::kTaskStaged:
      return end_task(Ending::kStaged);
    case EventKind::kTaskGone:
      return end_task(Ending::kGone);
    case EventKind::kTaskMissing:
      return end_task(Ending::kMissing);
    default:
      return;
  }
}

}  // namespace quorvane::tool
