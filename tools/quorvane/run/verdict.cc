// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/verdict.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

using Outcome = Verdict::Outcome;

constexpr const char* kCompareVersions =
    "Compare the versions with `quorvane inventory` when the server is back.";

std::string LastTask(const Run& run) {
  const PhaseRun* task = run.Last(Phase::kTask);
  return task == nullptr ? std::string() : task->uri;
}

std::string CheckTask(const Run& run) {
  const std::string task = LastTask(run);
  return task.empty() ? std::string(kCompareVersions)
                      : fmt::format("Check the task with GET {}. {}", task,
                                    kCompareVersions);
}

// "Upload at /a returned HTTP 413: Too large."
std::string CauseOf(const Rejection& rejection) {
  std::string cause =
      fmt::format("{} at {} returned HTTP {}", NameOf(rejection.phase),
                  PathOf(rejection.uri), rejection.status);
  if (!rejection.text.empty()) cause += ": " + rejection.text;
  // The text of a BMC may end without a period.
  return cause.back() == '.' ? cause : cause + '.';
}

Verdict LoginRefused(long status) {
  return {
      Outcome::kLoginRefused,
      fmt::format("The BMC refused the login (HTTP {}).", status),
      {},
      "Check the user, the password and the privileges of the account. More "
      "attempts can lock the account."};
}

// Why the download failed that follows a rejected SimpleUpdate; empty if the
// run did not end there.
std::string FailedDownload(const Run& run) {
  if (run.phases.empty() || run.phases.back().phase != Phase::kDownload) {
    return {};
  }
  const std::vector<Remark>& remarks = run.phases.back().remarks;
  return " The download of the image failed as well" +
         (remarks.empty() ? "." : ": " + remarks.back().text);
}

const char* NextAfterRejection(const Run& run) {
  if (!FailedDownload(run).empty()) {
    return "Fix the problem that the BMC reports, or download the image and "
           "use --file.";
  }
  const long status = run.first_rejection->status;
  if (status != 404 && status != 405) {
    return "Fix the problem that the BMC reports, then run the update again.";
  }
  return run.Last(Phase::kSimpleUpdate) == nullptr
             ? "No URI of the rules file accepts an image on this BMC. Look up "
               "its UpdateService and add the URI, or use --image."
             : "No URI of the rules file accepts an image on this BMC. Look up "
               "its UpdateService and add the URI.";
}

Verdict JudgeRejection(const Run& run) {
  // The inventory is the first phase, so its login is the first cause.
  if (run.login_refused != 0) return LoginRefused(run.login_refused);
  if (!run.any_response) {
    return {
        Outcome::kUnreachable, "The BMC did not respond to any request.",
        run.transfer_failure,
        "Check the address and the network, and that the BMC is powered on."};
  }
  if (!run.first_rejection) {
    return {Outcome::kFailed, "The update failed at every URI.",
            run.transfer_failure,
            "Run `quorvane report LOG` to see each attempt."};
  }
  const Rejection& rejection = *run.first_rejection;
  if (rejection.status == 401 || rejection.status == 403) {
    return LoginRefused(rejection.status);
  }
  return {Outcome::kFailed, "The BMC rejected the update.",
          CauseOf(rejection) + FailedDownload(run), NextAfterRejection(run)};
}

Verdict JudgeFailedTask(const Run& run, const PhaseRun& task) {
  const std::string state = task.task.empty() ? "" : task.task.back().state;
  const PhaseRun* reboot = run.Last(Phase::kReboot);
  return {
      Outcome::kFailed,
      fmt::format("The task failed (state {}){}.", state,
                  reboot != nullptr ? "; the system was rebooted anyway" : ""),
      run.task_messages,
      "Fix the cause, then run the update again. The old firmware should still "
      "be installed."};
}

// The verdict on the task of an update or an activation; nothing if it
// succeeded.
std::optional<Verdict> JudgeTask(const Run& run, const PhaseRun& task) {
  const char* rebooted = run.Last(Phase::kReboot) != nullptr
                             ? "; the system was rebooted anyway"
                             : "";
  switch (task.result) {
    case PhaseResult::kFailed:
      return JudgeFailedTask(run, task);
    case PhaseResult::kTimedOut:
      return Verdict{
          Outcome::kUnknown,
          fmt::format("The task did not end within the time limit of the "
                      "rules{}.",
                      rebooted),
          task.task.empty()
              ? std::string("No poll returned a state.")
              : fmt::format("Last state: {}.", task.task.back().state),
          CheckTask(run)};
    case PhaseResult::kNotFoundEarly:
      return Verdict{
          Outcome::kUnknown,
          fmt::format(
              "The task disappeared (HTTP 404) before it reported 50 %{}.",
              rebooted),
          {},
          CheckTask(run)};
    case PhaseResult::kOpen:
      return Verdict{
          Outcome::kUnknown,
          "The outcome of the task is unknown: the log ends before the "
          "task does.",
          {},
          CheckTask(run)};
    case PhaseResult::kAccepted:
    case PhaseResult::kSucceeded:
    case PhaseResult::kStaged:
    case PhaseResult::kNotFoundLate:
    case PhaseResult::kRejected:
      break;
  }
  return std::nullopt;
}

Verdict JudgeReboot(const Run& run, const PhaseRun& reboot) {
  // A request without a response may have rebooted the system, whatever came
  // later.
  const bool no_response =
      std::any_of(reboot.spans.begin(), reboot.spans.end(),
                  [](const Span& one) { return one.status == 0; });
  if (no_response) {
    return {Outcome::kUnknown,
            "The firmware was accepted, but a reboot request got no response.",
            run.transfer_failure, kCompareVersions};
  }
  return {Outcome::kFailed,
          "The firmware was accepted, but the BMC rejected the reboot.",
          run.first_rejection ? CauseOf(*run.first_rejection) : std::string(),
          "Reboot the system manually to activate the new firmware."};
}

Verdict JudgeSuccess(const Run& run) {
  const PhaseRun* reboot = run.Last(Phase::kReboot);
  if (reboot != nullptr && reboot->result == PhaseResult::kRejected) {
    return JudgeReboot(run, *reboot);
  }
  const PhaseRun* task = run.Last(Phase::kTask);
  if (run.reboot_skipped) {
    const bool is_staged =
        task != nullptr && task->result == PhaseResult::kStaged;
    return {is_staged ? Outcome::kStaged : Outcome::kDone,
            is_staged
                ? "The firmware is staged; the next reboot of the system "
                  "applies it."
                : "The update is done; the rules file requires no reboot.",
            {},
            is_staged ? "Reboot the system when convenient." : ""};
  }
  for (const PhaseRun& one : run.phases) {
    if (one.phase == Phase::kTask && one.result == PhaseResult::kNotFoundLate) {
      return {Outcome::kDone,
              "The task disappeared (HTTP 404) after 50 %, as happens when the "
              "BMC restarts to apply firmware.",
              {},
              kCompareVersions};
    }
    if (one.phase == Phase::kTask && one.result == PhaseResult::kStaged) {
      return {Outcome::kDone,
              "The firmware was staged, and the system reboots to apply it.",
              {},
              kCompareVersions};
    }
  }
  return {Outcome::kDone, "The update is done; the system reboots.", {}, ""};
}

Phase LastPhase(const Run& run) {
  return run.phases.empty() ? Phase::kNone : run.phases.back().phase;
}

// What matters now is what the BMC continues to do.
Verdict JudgeInterruption(const Run& run) {
  const Phase phase = LastPhase(run);
  switch (phase) {
    case Phase::kNone:
    case Phase::kInventory:
    case Phase::kDownload:
      return {Outcome::kInterrupted,
              "No request that changes anything was sent to the BMC.",
              {},
              {}};
    case Phase::kTask:
      return {Outcome::kInterrupted,
              fmt::format("The BMC may still run its task {}.", LastTask(run)),
              {},
              CheckTask(run)};
    case Phase::kReboot:
      return {Outcome::kInterrupted,
              "The reboot request may have been sent; the system may reboot.",
              {},
              CheckTask(run)};
    case Phase::kSimpleUpdate:
    case Phase::kUpload:
    case Phase::kBinaryUpload:
    case Phase::kActivation:
      break;
  }
  return {Outcome::kInterrupted,
          fmt::format(
              "Interrupted during the phase {}. The BMC may still process the "
              "request that it received.",
              NameOf(phase)),
          {},
          "Look for a new task with GET /redfish/v1/TaskService/Tasks."};
}

// A run whose log or process ended early.
std::optional<Verdict> JudgeUnfinishedRun(const Run& run) {
  if (run.was_interrupted) return JudgeInterruption(run);
  if (run.is_complete) return std::nullopt;
  const Phase phase = LastPhase(run);
  const bool nothing_changed = phase == Phase::kNone ||
                               phase == Phase::kInventory ||
                               phase == Phase::kDownload;
  return Verdict{
      Outcome::kUnknown,
      fmt::format(
          "The log ends during the phase {}{}.", NameOf(phase),
          nothing_changed ? ", before any request that changes something" : ""),
      {},
      CheckTask(run)};
}

// 202 without a task (RFC 9110, section 15.3.3): the outcome stays unknown.
bool WasAcceptedWithoutTask(const Run& run) {
  if (!run.has_no_task || run.Last(Phase::kTask) != nullptr) return false;
  const PhaseRun* upload = run.Last(Phase::kBinaryUpload);
  if (upload == nullptr) upload = run.Last(Phase::kUpload);
  return upload != nullptr && !upload->spans.empty() &&
         upload->spans.back().status == 202;
}

}  // namespace

Verdict JudgeRun(const Run& run, const std::optional<LibraryRecord>& record) {
  if (!record) {
    if (!run.is_update && !run.was_interrupted) {
      return {Outcome::kNoUpdate, "The log contains no update.", {}, {}};
    }
    if (auto broken = JudgeUnfinishedRun(run)) return *std::move(broken);
  }
  if (record ? !record->accepted : !run.WasAccepted()) {
    return JudgeRejection(run);
  }
  const PhaseRun* activation = run.Last(Phase::kActivation);
  if (activation != nullptr && activation->result == PhaseResult::kRejected) {
    return {Outcome::kFailed,
            "The image was uploaded, but its activation failed.",
            run.first_rejection ? CauseOf(*run.first_rejection)
                                : run.transfer_failure,
            "Check that `quorvane inventory --uris` lists each --target."};
  }
  for (const PhaseRun& one : run.phases) {
    if (one.phase != Phase::kTask || one.task_of == Phase::kReboot) continue;
    if (auto verdict = JudgeTask(run, one)) return *std::move(verdict);
  }
  if (WasAcceptedWithoutTask(run)) {
    return {Outcome::kUnknown,
            "The BMC accepted the image (HTTP 202) but named no task.",
            {},
            kCompareVersions};
  }
  if (record && !run.reboot_skipped && !record->reboot_accepted) {
    const PhaseRun* reboot = run.Last(Phase::kReboot);
    return JudgeReboot(run, reboot == nullptr ? PhaseRun{} : *reboot);
  }
  return JudgeSuccess(run);
}

std::string TextOf(const Verdict& verdict, std::size_t columns) {
  std::string text;
  const auto add = [&](const char* name, const std::string& value) {
    constexpr std::size_t kIndent = 9;
    if (value.empty()) return;
    text += Wrapped(fmt::format("{:<{}}{}", name, kIndent, value), columns,
                    kIndent) +
            '\n';
  };
  add("Outcome:", fmt::format("{}. {}", NameOf(verdict.outcome),
                              Printable(verdict.headline)));
  add("Cause:", Excerpt(verdict.cause, 2000));
  add("Next:", Printable(verdict.next));
  return text;
}

const char* NameOf(Verdict::Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
      return "done";
    case Outcome::kStaged:
      return "staged";
    case Outcome::kFailed:
      return "failed";
    case Outcome::kUnknown:
      return "unknown";
    case Outcome::kUnreachable:
      return "unreachable";
    case Outcome::kLoginRefused:
      return "login refused";
    case Outcome::kInterrupted:
      return "interrupted";
    case Outcome::kNoUpdate:
      return "no update";
  }
  return "";
}

ExitCode ExitCodeOf(Verdict::Outcome outcome) {
  switch (outcome) {
    case Outcome::kDone:
    case Outcome::kStaged:
    case Outcome::kNoUpdate:
      return ExitCode::kDone;
    case Outcome::kFailed:
      return ExitCode::kFailed;
    case Outcome::kUnreachable:
    case Outcome::kLoginRefused:
      return ExitCode::kUnreachable;
    case Outcome::kInterrupted:
      return ExitCode::kInterrupted;
    case Outcome::kUnknown:
      return ExitCode::kUnknown;
  }
  return ExitCode::kUnknown;
}

}  // namespace quorvane::tool
