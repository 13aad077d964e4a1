// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/run_session.h"

#include <fmt/core.h>
#include <poll.h>

#include <algorithm>
#include <exception>
#include <utility>
#include <variant>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/log_header.h"
#include "tools/quorvane/run/facts.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {

RunSession::RunSession(const BmcOptions& bmc, const Settings& settings)
    : bmc_(bmc),
      lock_(bmc.bmc),
      log_(bmc.log, bmc.log_level),
      events_(settings.events),
      signals_(settings.on_hangup),
      progress_(MakeProgress(settings.style, settings.attempts)) {
  if (settings.continues) AddEarlierEvents();
  for (const std::string& message :
       settings.continues
           ? ContinuedHeader(bmc, bmc.trust)
           : LogHeader(bmc, settings.title, settings.image, bmc.trust)) {
    NoteEvent(message);
  }
  if (log_.IsComplete()) return;
  throw ToolError(ExitCode::kUsage,
                  "Cannot write the log " + log_.path() +
                      ". Nothing was sent; use --log with another file.");
}

// The events of the log have times of the day, those of this run do not.
void RunSession::AddEarlierEvents() {
  auto earlier = ReadReport(ReadRegular(log_.path(), "log"));
  if (earlier.events.empty()) return;
  const double now = MonotonicSeconds();
  const double shift =
      now - std::max(SecondsOf(StampNow()), earlier.events.back().time);
  for (Event& event : earlier.events) {
    event.time += shift;
    builder_.Add(event);
  }
}

void RunSession::OnRecord(const Record& record) {
  Event event = EventFrom(record);
  log_.Keep(record, IsEssential(event.kind) && !run().IsVerifying());
  event.time = MonotonicSeconds();
  AddEvent(event);
  progress_->OnEvent(event, run());
}

void RunSession::OnTick() { progress_->OnTick(run()); }

Event RunSession::NoteEvent(const std::string& text) {
  log_.Note(text);
  Event event = EventFrom({.time = MonotonicSeconds(),
                           .stamp = StampNow(),
                           .component = kToolComponent,
                           .message = Printable(text)});
  AddEvent(event);
  return event;
}

void RunSession::AddEvent(const Event& event) {
  builder_.Add(event);
  events_.Write(event);
}

void RunSession::Report(const std::string& text) {
  progress_->OnEvent(NoteEvent(text), run());
}

void RunSession::NoteInterruption() {
  NoteEvent("Interrupted by a signal.");
  must_stop_ = true;
}

std::optional<WorkerResponse> RunSession::Call(LibraryCall call,
                                               RebootBy reboot_by,
                                               OnError on_error) {
  CallResult result;
  try {
    result = CallLibrary(
        std::move(call),
        {.rules = bmc_.rules, .reboot_by = reboot_by, .trust = bmc_.trust},
        signals_, *this);
  } catch (const std::exception& error) {
    // An earlier call may have changed the BMC, so the verdict must be made.
    result.reason = error.what();
  }
  switch (result.end) {
    case CallResult::End::kInterrupted:
      NoteInterruption();
      return std::nullopt;
    case CallResult::End::kTimedOut:  // no limit is set
    case CallResult::End::kDied:
      NoteEvent("Worker process failed: " + result.reason);
      must_stop_ = true;
      return std::nullopt;
    case CallResult::End::kResponded:
      break;
  }
  if (const auto* error = std::get_if<WorkerError>(&*result.response)) {
    if (error->is_login_refused) {
      must_stop_ = true;
    } else if (on_error == OnError::kEnd) {
      must_stop_ = true;
      NoteEvent("Worker process failed: " + error->message);
    }
    return std::nullopt;
  }
  return std::move(result.response);
}

bool RunSession::Probe() {
  CallResult result =
      CallLibrary(ProbeCall{bmc_.bmc},
                  {.rules = bmc_.rules, .trust = bmc_.trust}, signals_, *this);
  if (result.end == CallResult::End::kInterrupted) {
    NoteInterruption();
    return false;
  }
  if (result.end == CallResult::End::kDied) {
    must_stop_ = true;
    NoteEvent("Worker process failed: " + result.reason);
    return false;
  }
  if (const auto* error = std::get_if<WorkerError>(&*result.response)) {
    throw ToolError(ExitCode::kUsage, "Cannot start: " + error->message + ".");
  }
  const auto& probe = std::get<ProbeResult>(*result.response);
  must_stop_ = probe.status == 0;
  // The library logs a failed request itself, but not a lookup that hangs.
  if (must_stop_ && run().transfer_failure.empty()) {
    NoteEvent("No response: " + probe.reason);
  }
  return !must_stop_;
}

std::optional<WorkerResponse> RunSession::Read(LibraryCall call,
                                               double limit_seconds) {
  CallResult result;
  try {
    result = CallLibrary(std::move(call),
                         {.rules = bmc_.rules,
                          .trust = bmc_.trust,
                          .limit_seconds = limit_seconds},
                         signals_, *this);
  } catch (const ToolError&) {
    return std::nullopt;  // the next call may start again
  }
  if (result.end == CallResult::End::kInterrupted) NoteInterruption();
  return std::move(result.response);
}

void RunSession::StopAtRefusedLogin() {
  Report(
      "Login refused (HTTP 401). The tool sends no more requests, because "
      "they could lock the account.");
  must_stop_ = true;
}

bool RunSession::Wait(double seconds) {
  constexpr int kTickMs = 100;
  const double end = MonotonicSeconds() + seconds;
  while (MonotonicSeconds() < end) {
    pollfd signal{signals_.descriptor(), POLLIN, 0};
    if (poll(&signal, 1, kTickMs) > 0 && signals_.MustStop()) {
      NoteInterruption();
      return false;
    }
    OnTick();
  }
  return true;
}

std::optional<UpdateResponse> RunSession::Reboot(
    const Config& rules, const InventoryRequest& account,
    const std::string& objection) {
  const std::string harm = ReasonAgainstReboot(run());
  const std::string reason =
      !harm.empty()              ? harm
      : !rules.reboot_required   ? "the rules require no reboot"
      : rules.reboot_uri.empty() ? "the rules contain no reboot URI"
                                 : objection;
  if (reason.empty()) {
    return ResultIn<UpdateResponse>(Call(RestartCall{account}));
  }
  NoteEvent("No reboot: " + reason);
  return std::nullopt;
}

ExitCode ExitCodeOf(const Verdict& verdict, bool is_recorded) {
  const ExitCode code = ExitCodeOf(verdict.outcome);
  return code == ExitCode::kDone && !is_recorded ? ExitCode::kNotRecorded
                                                 : code;
}

Verdict RunSession::Finish() {
  progress_->Finish();
  log_.NoteElapsed();
  NoteEvent("Ended: " + ZonedStampNow());
  if (!run().was_interrupted && run().worker_failure.empty()) {
    NoteEvent("Finished.");
  }
  Verdict verdict = JudgeRun(run());
  LogVerdict(verdict);
  return verdict;
}

Verdict RunSession::Stop(const std::string& reason) {
  progress_->Finish();
  NoteEvent("Finished.");
  Verdict verdict{Verdict::Outcome::kFailed, reason, {}, {}};
  LogVerdict(verdict);
  return verdict;
}

void RunSession::LogVerdict(const Verdict& verdict) {
  NoteEvent(fmt::format("Outcome: {}. {}", NameOf(verdict.outcome),
                        verdict.headline));
  if (!verdict.cause.empty()) NoteEvent("Cause: " + verdict.cause);
  if (!verdict.next.empty()) NoteEvent("Next: " + verdict.next);
}

}  // namespace quorvane::tool
