// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/verdict.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

using Ending = PhaseRun::Ending;
using Outcome = Verdict::Outcome;

constexpr const char* kCompareVersions =
    "Compare the versions with `quorvane inventory` once the machine is back.";

std::string LastTask(const Run& run) {
  const PhaseRun* task = run.Last(Phase::kTask);
  return task == nullptr ? std::string() : task->uri;
}

std::string LookAtTask(const Run& run) {
  const std::string task = LastTask(run);
  return task.empty() ? std::string(kCompareVersions)
                      : fmt::format("Ask the BMC with GET {}. {}", task,
                                    kCompareVersions);
}

// "The upload to /a was answered 413: Too large."
std::string CauseOf(const Refusal& refusal) {
  std::string cause =
      fmt::format("{} at {} was answered {}", NameOf(refusal.phase),
                  PathOf(refusal.uri), refusal.status);
  return refusal.words.empty() ? cause + "." : cause + ": " + refusal.words;
}

Verdict LoginRefused(long status) {
  return {Outcome::kLoginRefused,
          fmt::format("The BMC refused the login (HTTP {}).", status),
          {},
          "Check user, password and the account's rights; more tries may lock "
          "the account."};
}

// The last resort of a refused SimpleUpdate; empty when it came further.
std::string FailedDownload(const Run& run) {
  if (run.phases.empty() || run.phases.back().phase != Phase::kDownload) {
    return {};
  }
  const std::vector<Remark>& remarks = run.phases.back().remarks;
  return " The image could not be downloaded here either" +
         (remarks.empty() ? "." : ": " + remarks.back().text);
}

const char* NextAfterRefusal(const Run& run) {
  if (!FailedDownload(run).empty()) {
    return "Mend what the BMC complains of, or fetch the image yourself and "
           "use "
           "--file.";
  }
  const long status = run.first_refusal->status;
  return status == 404 || status == 405
             ? "No URI of the rules file takes an image on this BMC; look up "
               "its UpdateService and add the URI, or use --image."
             : "Mend what the BMC complains of and run the update again.";
}

Verdict JudgeRefusal(const Run& run) {
  // The inventory comes first, so its refused login is the first cause.
  if (run.login_refused != 0) return LoginRefused(run.login_refused);
  if (!run.any_answer) {
    return {Outcome::kUnreachable, "The BMC gave no answer to any request.",
            run.transfer_failure,
            "Check the address, the network and that the BMC is on."};
  }
  if (!run.first_refusal) {
    return {Outcome::kFailed, "The BMC took the update nowhere.",
            run.transfer_failure,
            "The log tells each try; `quorvane report` shows them in order."};
  }
  const Refusal& refusal = *run.first_refusal;
  if (refusal.status == 401 || refusal.status == 403) {
    return LoginRefused(refusal.status);
  }
  return {Outcome::kFailed, "The BMC refused the update.",
          CauseOf(refusal) + FailedDownload(run), NextAfterRefusal(run)};
}

Verdict JudgeBadTask(const Run& run, const PhaseRun& task) {
  const std::string state = task.task.empty() ? "" : task.task.back().state;
  const PhaseRun* restart = run.Last(Phase::kRestart);
  return {
      Outcome::kFailed,
      fmt::format(
          "The BMC's task ended in {}{}.", state,
          restart != nullptr ? "; the system was restarted all the same" : ""),
      run.task_words,
      "Read the cause, then run the update again; the old firmware should "
      "still be there."};
}

// Of the update's own task and of an activation's; nothing when it went well.
std::optional<Verdict> JudgeTask(const Run& run, const PhaseRun& task) {
  const bool restarted = run.Last(Phase::kRestart) != nullptr;
  const char* all_the_same =
      restarted ? "; the system was restarted all the same" : "";
  switch (task.ending) {
    case Ending::kBadly:
      return JudgeBadTask(run, task);
    case Ending::kTimedOut:
      return Verdict{
          Outcome::kUnknown,
          fmt::format("The task did not end in the time that the rules give "
                      "it{}.",
                      all_the_same),
          task.task.empty()
              ? std::string("No poll brought a state.")
              : fmt::format("Last state: {}.", task.task.back().state),
          LookAtTask(run)};
    case Ending::kMissing:
      return Verdict{
          Outcome::kUnknown,
          fmt::format("The task vanished before half way{}.", all_the_same),
          {},
          LookAtTask(run)};
    case Ending::kOpen:
      return Verdict{Outcome::kUnknown,
                     "Nobody saw how the task ended.",
                     {},
                     LookAtTask(run)};
    default:
      return std::nullopt;
  }
}

Verdict JudgeRestart(const Run& run, const PhaseRun& restart) {
  // One that got no answer may have restarted the system, whatever came later.
  const bool no_answer =
      std::any_of(restart.spans.begin(), restart.spans.end(),
                  [](const Span& one) { return one.status == 0; });
  if (no_answer) {
    return {Outcome::kUnknown,
            "The firmware was taken; a request to restart got no answer.",
            run.transfer_failure, kCompareVersions};
  }
  return {Outcome::kFailed,
          "The firmware was taken, but the BMC refused to restart the system.",
          run.first_refusal ? CauseOf(*run.first_refusal) : std::string(),
          "Restart the system by hand to bring the new firmware to work."};
}

Verdict JudgeEnd(const Run& run) {
  const PhaseRun* restart = run.Last(Phase::kRestart);
  if (restart != nullptr && restart->ending == Ending::kRefused) {
    return JudgeRestart(run, *restart);
  }
  const PhaseRun* task = run.Last(Phase::kTask);
  if (run.restart_left_out) {
    const bool is_staged = task != nullptr && task->ending == Ending::kStaged;
    return {is_staged ? Outcome::kStaged : Outcome::kDone,
            is_staged ? "The firmware is staged; it is applied at the next "
                        "restart of the system."
                      : "The update is done; the rules want no restart.",
            {},
            is_staged ? "Restart the system when it suits." : ""};
  }
  for (const PhaseRun& one : run.phases) {
    if (one.phase == Phase::kTask && one.ending == Ending::kGone) {
      return {Outcome::kDone,
              "The update is done as far as the BMC lets see: its task went "
              "away past half way, as at a restart.",
              {},
              kCompareVersions};
    }
    if (one.phase == Phase::kTask && one.ending == Ending::kStaged) {
      return {Outcome::kDone,
              "The firmware was staged, and the restart that applies it is "
              "under way.",
              {},
              kCompareVersions};
    }
  }
  return {Outcome::kDone, "The update is done; the system restarts.", {}, ""};
}

Phase LastPhase(const Run& run) {
  return run.phases.empty() ? Phase::kNone : run.phases.back().phase;
}

// What the BMC goes on with is what matters now.
Verdict JudgeInterruption(const Run& run) {
  switch (const Phase phase = LastPhase(run)) {
    case Phase::kNone:
    case Phase::kInventory:
    case Phase::kDownload:
      return {Outcome::kInterrupted,
              "The BMC was not yet asked to change anything.",
              {},
              {}};
    case Phase::kTask:
      return {Outcome::kInterrupted,
              fmt::format("The BMC goes on with its task {}.", LastTask(run)),
              {},
              LookAtTask(run)};
    case Phase::kRestart:
      return {Outcome::kInterrupted,
              "The system was being asked to restart; it may.",
              {},
              LookAtTask(run)};
    default:
      return {
          Outcome::kInterrupted,
          fmt::format("This was in the phase {}; the BMC may go on with what "
                      "it has been sent.",
                      NameOf(phase)),
          {},
          "Look for a new task with GET /redfish/v1/TaskService/Tasks."};
  }
}

// A run whose log or process ended before its time.
std::optional<Verdict> JudgeBrokenRun(const Run& run) {
  if (run.was_interrupted) return JudgeInterruption(run);
  if (run.is_complete) return std::nullopt;
  const Phase phase = LastPhase(run);
  const bool asked_nothing = phase == Phase::kNone ||
                             phase == Phase::kInventory ||
                             phase == Phase::kDownload;
  return Verdict{
      Outcome::kUnknown,
      fmt::format("The log breaks off in the phase {}{}.", NameOf(phase),
                  asked_nothing
                      ? "; up to there the BMC was not asked to change anything"
                      : ""),
      {},
      LookAtTask(run)};
}

// 202 without a task (RFC 9110, section 15.3.3): nobody sees the end.
bool WasTakenForLater(const Run& run) {
  if (!run.named_no_task || run.Last(Phase::kTask) != nullptr) return false;
  const PhaseRun* upload = run.Last(Phase::kBinaryUpload);
  if (upload == nullptr) upload = run.Last(Phase::kUpload);
  return upload != nullptr && !upload->spans.empty() &&
         upload->spans.back().status == 202;
}

}  // namespace

Verdict JudgeRun(const Run& run, const std::optional<LibraryRecord>& record) {
  if (!record) {
    if (!run.is_update && !run.was_interrupted) {
      return {Outcome::kNoUpdate, "The log holds no update.", {}, {}};
    }
    if (auto broken = JudgeBrokenRun(run)) return *std::move(broken);
  }
  if (record ? !record->accepted : !run.WasTaken()) return JudgeRefusal(run);
  const PhaseRun* activation = run.Last(Phase::kActivation);
  if (activation != nullptr && activation->ending == Ending::kRefused) {
    return {
        Outcome::kFailed,
        "The image was uploaded, but the BMC refused to activate it.",
        run.first_refusal ? CauseOf(*run.first_refusal) : run.transfer_failure,
        "Check that each --target is a URI that this BMC lists."};
  }
  for (const PhaseRun& one : run.phases) {
    if (one.phase != Phase::kTask || one.task_of == Phase::kRestart) continue;
    if (auto verdict = JudgeTask(run, one)) return *std::move(verdict);
  }
  if (WasTakenForLater(run)) {
    return {Outcome::kUnknown,
            "The BMC took the image for later and named no task to follow.",
            {},
            kCompareVersions};
  }
  if (record && !run.restart_left_out && !record->restart_accepted) {
    const PhaseRun* restart = run.Last(Phase::kRestart);
    return JudgeRestart(run, restart == nullptr ? PhaseRun{} : *restart);
  }
  return JudgeEnd(run);
}

std::string TextOf(const Verdict& verdict, std::size_t columns) {
  std::string text;
  const auto add = [&](const char* name, const std::string& words) {
    constexpr std::size_t kIndent = 9;
    if (words.empty()) return;
    text += Wrapped(fmt::format("{:<{}}{}", name, kIndent, words), columns,
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
