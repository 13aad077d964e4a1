// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/verdict.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "tools/quorvane/base/http_status.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/run/advice.h"
#include "tools/quorvane/run/facts.h"
#include "tools/quorvane/run/request_text.h"
#include "tools/quorvane/run/version_verdict.h"

namespace quorvane::tool {
namespace {

using Fate = ChangeRequest::Fate;
using Outcome = Verdict::Outcome;

Verdict InventoryForbidden(const Facts& facts) {
  return {Outcome::kLoginRefused,
          fmt::format("The BMC does not let the account read the inventory "
                      "(HTTP {}), so nothing was uploaded.",
                      kHttpForbidden),
          {},
          AfterForbiddenInventory(facts.run)};
}

Verdict LoginRefused(const Facts& facts) {
  const Run& run = facts.run;
  const bool was_accepted = run.items_read >= 0;
  return {Outcome::kLoginRefused,
          fmt::format("The BMC {}refused the login (HTTP {}).",
                      was_accepted ? "accepted the account for the inventory, "
                                     "then "
                                   : "",
                      kHttpUnauthorized),
          ListOf(run), AfterRefusedLogin(run)};
}

Verdict Unreachable(const Facts& facts) {
  if (IsUntrusted(facts.run.transfer_failure)) {
    return {Outcome::kUnreachable,
            "The certificate of the BMC is not the expected one, so the tool "
            "sent no password and no image.",
            facts.run.transfer_failure,
            "Compare the key that `quorvane trust` shows with that of the "
            "server. If they differ, another computer may answer for the BMC."};
  }
  return {Outcome::kUnreachable, "The BMC did not respond to any request.",
          facts.run.transfer_failure,
          "Check the address and the network, and that the BMC is powered on."};
}

Verdict InventoryUnanswered(const Facts& facts) {
  return {Outcome::kUnreachable,
          "The BMC responded at first, but not to the requests for the "
          "inventory, so nothing was uploaded.",
          Sentence(facts.run.transfer_failure),
          "Check the network and the state of the BMC, then run the update "
          "again."};
}

// What the BMC may continue to do after a run that was cut off.
std::string Continuation(const Facts& facts) {
  const Run& run = facts.run;
  if (!HasSentRequest(run)) {
    return run.was_interrupted || !run.worker_failure.empty()
               ? "No request that changes anything was sent to the BMC."
               : "It contains no request that changes anything.";
  }
  const ChangeRequest& last = *std::find_if(
      run.requests.rbegin(), run.requests.rend(), [](const auto& one) {
        return one.fate != Fate::kPlanned && one.fate != Fate::kNotSent;
      });
  if (last.IsInDoubt()) {
    return fmt::format("The BMC may act on the {} request.",
                       NameOf(last.phase));
  }
  if (facts.reboot == Answer::kAccepted) return "The system reboots.";
  const PhaseRun* task = run.Last(Phase::kTask);
  if (task != nullptr && EndOf(*task) == TaskEnd::kUnfinished) {
    return fmt::format("The BMC may still run its task {}.", task->uri);
  }
  return facts.image == Answer::kAccepted
             ? "The BMC accepted the image and may still install it."
             : "The BMC rejected all requests so far.";
}

std::string AfterCutOff(const Facts& facts) {
  return HasSentRequest(facts.run) || facts.has_task ? CheckTask(facts.run)
                                                     : std::string();
}

std::string PhaseName(const Run& run) {
  return NameOf(run.phases.empty() ? Phase::kNone : run.phases.back().phase);
}

Verdict Interrupted(const Facts& facts) {
  return {Outcome::kInterrupted,
          fmt::format("Interrupted during the phase {}. {}",
                      PhaseName(facts.run), Continuation(facts)),
          ListOf(facts.run), AfterCutOff(facts)};
}

Verdict WorkerDied(const Facts& facts) {
  const std::string headline =
      fmt::format("The process that runs the library failed ({}). {}",
                  facts.run.worker_failure, Continuation(facts));
  if (!HasSentRequest(facts.run)) return {Outcome::kFailed, headline, {}, {}};
  return {Outcome::kUnknown, headline, ListOf(facts.run), AfterCutOff(facts)};
}

Verdict LogEnds(const Facts& facts) {
  return {Outcome::kUnknown,
          fmt::format("The log ends during the phase {}. {}",
                      PhaseName(facts.run), Continuation(facts)),
          ListOf(facts.run), CheckTask(facts.run)};
}

Verdict ImageInDoubt(const Facts& facts) {
  const bool is_simple_update =
      std::any_of(facts.run.requests.begin(), facts.run.requests.end(),
                  [](const ChangeRequest& one) {
                    return one.phase == Phase::kSimpleUpdate && one.IsInDoubt();
                  });
  return {
      Outcome::kUnknown,
      fmt::format("{}, but a response was lost. The BMC may install the "
                  "image{}.",
                  is_simple_update
                      ? "The BMC was requested to download the image"
                      : "The image was sent, at least in part",
                  RebootClause(facts)),
      ListOf(facts.run),
      CheckTask(facts.run) + " Do not start another update before you know."};
}

std::string NextAfterRejection(const Run& run, long status) {
  if (!FailedDownload(run).empty()) {
    return "Fix the problem that the BMC reports, or download the image and "
           "use --file.";
  }
  if (status == kHttpForbidden) {
    return "Use an account with the privilege to update firmware.";
  }
  if (status != kHttpNotFound && status != kHttpMethodNotAllowed) {
    return "Fix the problem that the BMC reports, then run the update again.";
  }
  return run.Last(Phase::kSimpleUpdate) == nullptr
             ? "No URI of the rules file accepts an image on this BMC. Look up "
               "its UpdateService and add the URI, or use --image."
             : "No URI of the rules file accepts an image on this BMC. Look up "
               "its UpdateService and add the URI.";
}

Verdict ImageRejected(const Facts& facts) {
  const Run& run = facts.run;
  const ChangeRequest& rejection = *LastRejection(run, SendsImage);
  if (rejection.status == kHttpUnauthorized) return LoginRefused(facts);
  return {Outcome::kFailed,
          fmt::format("The BMC rejected the update{}.", RebootClause(facts)),
          CauseAndList(run, rejection) + FailedDownload(run),
          NextAfterRejection(run, rejection.status)};
}

Verdict ImageAcceptedByRule(const Facts& facts) {
  const ChangeRequest& rejection = *LastRejection(facts.run, SendsImage);
  return {Outcome::kUnknown,
          fmt::format("The BMC answered the image with HTTP {}, but the rules "
                      "count that as accepted{}.",
                      rejection.status, RebootClause(facts)),
          CauseAndList(facts.run, rejection), CheckTask(facts.run)};
}

Verdict ImageNotSent(const Facts& facts) {
  return {Outcome::kUnreachable,
          "The BMC responded at first, but not to the "
          "request with the image. No image reached it.",
          Sentence(facts.run.transfer_failure),
          "Check the network and the state of the BMC, then run the update "
          "again."};
}

Verdict NoImageRequest(const Facts& facts) {
  const std::vector<PhaseRun>& phases = facts.run.phases;
  const bool has_remark = !phases.empty() && !phases.back().remarks.empty();
  return {
      Outcome::kFailed,
      "The run ended before it sent a request that changes anything.",
      has_remark ? Sentence(phases.back().remarks.back().text) : std::string(),
      facts.run.was_continued ? "Run the update again."
                              : "Run `quorvane report LOG` to see each step."};
}

Verdict ActivationInDoubt(const Facts& facts) {
  return {Outcome::kUnknown,
          "The image was uploaded, but the response to its activation was "
          "lost. The BMC may still activate it" +
              RebootClause(facts) + ".",
          ListOf(facts.run),
          LookForTask(facts.run) + " " + CompareVersions(facts.run)};
}

Verdict ActivationRejected(const Facts& facts) {
  const ChangeRequest* rejection = LastRejection(facts.run, IsActivation);
  return {Outcome::kFailed,
          "The image was uploaded, but its activation failed" +
              RebootClause(facts) + ".",
          rejection != nullptr ? CauseAndList(facts.run, *rejection)
                               : Sentence(facts.run.transfer_failure),
          "Look up why in the event log of the BMC, and check that its "
          "SimpleUpdate action accepts each --target."};
}

Verdict ActivationMissing(const Facts& /*facts*/) {
  return {Outcome::kUnknown,
          "The image was uploaded, but the run broke off before it requested "
          "the activation for the targets.",
          {},
          "Run the update again when `quorvane tasks` lists no task that still "
          "runs."};
}

std::string LastState(const PhaseRun& task) {
  return task.task.empty() ? std::string() : task.task.back().state;
}

constexpr const char* kFixAndRepeat =
    "Fix the cause, then run the update again. ";

// Verdicts on the task that proves no success.

Verdict TaskFailed(const Facts& facts) {
  return {Outcome::kFailed,
          fmt::format("The task failed (state {}){}.",
                      LastState(*facts.bad_task), RebootClause(facts)),
          facts.bad_task->report.messages,
          kFixAndRepeat + CompareVersions(facts.run)};
}

Verdict TaskCritical(const Facts& facts) {
  const TaskReport& report = facts.bad_task->report;
  return {Outcome::kFailed,
          fmt::format("The task {}, but reports a critical problem{}.",
                      facts.bad_task->result == PhaseResult::kStaged
                          ? "waits for a reboot"
                          : "completed",
                      RebootClause(facts)),
          !report.critical.empty()  ? report.critical
          : report.messages.empty() ? "TaskStatus: Critical."
                                    : report.messages,
          kFixAndRepeat + CompareVersions(facts.run)};
}

Verdict TaskPollsRefused(const Facts& facts) {
  return {Outcome::kUnknown,
          fmt::format("The BMC refused the last polls of the task (login "
                      "refused), so its end is not known{}.",
                      RebootClause(facts)),
          LastPoll(facts.run, *facts.bad_task),
          AfterRefusedLogin(facts.run) + " " + CheckTask(facts.run)};
}

Verdict TaskTimedOut(const Facts& facts) {
  return {Outcome::kUnknown,
          fmt::format("The task did not end within the time limit of the "
                      "rules{}.",
                      RebootClause(facts)),
          LastPoll(facts.run, *facts.bad_task), CheckTask(facts.run)};
}

Verdict TaskGoneEarly(const Facts& facts) {
  const char* const headline =
      facts.bad_task->task.empty()
          ? "The BMC named a task, but returned HTTP 404 for it"
          : "The task disappeared (HTTP 404) before it reported 50 %";
  return {Outcome::kUnknown,
          headline + RebootClause(facts) + ".",
          {},
          LookForTask(facts.run) + " " + CompareVersions(facts.run)};
}

Verdict TaskGoneLate(const Facts& facts) {
  return {Outcome::kUnknown,
          fmt::format("The task disappeared (HTTP 404) after 50 %, as "
                      "happens when the BMC restarts to apply firmware{}.",
                      RebootClause(facts)),
          facts.bad_task->report.messages, CompareVersions(facts.run)};
}

Verdict TaskUndecided(const Facts& facts) {
  return {Outcome::kUnknown,
          fmt::format("Polling ended while the task was in the state {}{}.",
                      LastState(*facts.bad_task), RebootClause(facts)),
          facts.bad_task->report.messages, CheckTask(facts.run)};
}

Verdict TaskUnreadable(const Facts& facts) {
  return {Outcome::kUnknown,
          fmt::format("The task completed, but its status and messages "
                      "cannot be read{}.",
                      RebootClause(facts)),
          {},
          CheckTask(facts.run)};
}

Verdict TaskUnfinished(const Facts& facts) {
  return {Outcome::kUnknown, "The task did not end" + RebootClause(facts) + ".",
          LastPoll(facts.run, *facts.bad_task), CheckTask(facts.run)};
}

Verdict NoTask(const Facts& facts) {
  const Run& run = facts.run;
  const auto accepted = std::find_if(
      run.requests.rbegin(), run.requests.rend(), [](const ChangeRequest& one) {
        return one.phase != Phase::kReboot && one.WasAccepted();
      });
  return {Outcome::kUnknown,
          fmt::format(
              "The BMC accepted the {} (HTTP {}) but named no task, so "
              "the outcome is unknown{}.",
              accepted->phase == Phase::kActivation ? "activation" : "image",
              accepted->status, RebootClause(facts)),
          {},
          CompareVersions(run)};
}

const char* Prefix(const Facts& facts) {
  return facts.is_staged ? "The firmware is staged" : "The task completed";
}

Verdict RebootRejected(const Facts& facts) {
  const Run& run = facts.run;
  // An earlier URI may have rejected a reboot whose task then failed.
  const ChangeRequest* rejection = facts.reboot == Answer::kRejected
                                       ? LastRejection(run, IsReboot)
                                       : nullptr;
  const PhaseRun* task = run.Last(Phase::kTask);
  return {Outcome::kFailed,
          fmt::format("{}, but {}.", Prefix(facts),
                      rejection != nullptr ? "the BMC rejected the reboot"
                                           : "the task of the reboot failed"),
          rejection != nullptr ? CauseAndList(run, *rejection)
          : task != nullptr    ? LastPoll(run, *task)
                               : std::string(),
          fmt::format("Fix the problem that the BMC reports, then run {}, or "
                      "reboot the system in another way.",
                      RebootCommand(run))};
}

Verdict RebootInDoubt(const Facts& facts) {
  return {
      Outcome::kUnknown,
      fmt::format("{}, but a reboot request got no response.", Prefix(facts)),
      ListOf(facts.run),
      fmt::format("Check whether the system reboots; if not, run {}. {}",
                  RebootCommand(facts.run), CompareVersions(facts.run))};
}

Verdict RebootNotSent(const Facts& facts) {
  return {Outcome::kFailed,
          fmt::format("{}, but the reboot request did not reach the BMC.",
                      Prefix(facts)),
          Sentence(facts.run.transfer_failure),
          fmt::format("Reboot the system with {}.", RebootCommand(facts.run))};
}

Verdict StagedAndRebooted(const Facts& facts) {
  return {Outcome::kUnknown,
          "The firmware was staged, and the BMC accepted the reboot that "
          "applies it. The outcome is not known yet.",
          {},
          CompareVersions(facts.run)};
}

Verdict Staged(const Facts& facts) {
  return {Outcome::kStaged,
          "The firmware is staged; the next reboot of the system applies it.",
          facts.run.reboot_withheld.empty()
              ? std::string()
              : Sentence("No reboot was requested, because " +
                         facts.run.reboot_withheld),
          fmt::format("Reboot the system when convenient, e.g. with {}.",
                      RebootCommand(facts.run))};
}

Verdict DoneAndRebooted(const Facts& /*facts*/) {
  return {
      Outcome::kDone, "The BMC reports success; the system reboots.", {}, {}};
}

Verdict DoneByRules(const Facts& /*facts*/) {
  return {Outcome::kDone,
          "The BMC reports success; the rules file requires no reboot.",
          {},
          {}};
}

Verdict DoneNotRebooted(const Facts& facts) {
  return {Outcome::kDone,
          facts.run.reboot_withheld.empty()
              ? std::string("The BMC reports success; no reboot was requested.")
              : "The BMC reports success" + RebootClause(facts) + ".",
          {},
          fmt::format("Reboot the system if the firmware needs it, e.g. with "
                      "{}.",
                      RebootCommand(facts.run))};
}

bool HasFailedRebootTask(const Facts& facts) {
  const PhaseRun* task = facts.run.Last(Phase::kTask);
  return task != nullptr && task->task_of == Phase::kReboot &&
         EndOf(*task) == TaskEnd::kFailed;
}

// A run that only reboots the system.
Verdict RebootOnly(const Facts& facts) {
  const Run& run = facts.run;
  switch (facts.reboot) {
    case Answer::kAccepted:
      return {
          Outcome::kDone, "The BMC accepted the reboot of the system.", {}, {}};
    case Answer::kInDoubt:
      return {Outcome::kUnknown,
              "A reboot request got no response; the system may reboot.",
              ListOf(run), "Check the state of the server."};
    case Answer::kRejected:
      if (LastRejection(run, IsReboot)->status == kHttpUnauthorized) {
        return LoginRefused(facts);
      }
      return {Outcome::kFailed, "The BMC rejected the reboot.",
              CauseAndList(run, *LastRejection(run, IsReboot)),
              "Fix the problem that the BMC reports, or reboot the system in "
              "another way."};
    case Answer::kNotSent:
    case Answer::kNone:
      break;
  }
  return {Outcome::kUnreachable, "The reboot request did not reach the BMC.",
          Sentence(run.transfer_failure), "Check the network."};
}

Verdict NotNeeded(const Facts& /*facts*/) {
  return {Outcome::kCurrent,
          "The BMC has every expected version already, so nothing was uploaded "
          "(--skip-if-current).",
          {},
          {}};
}

bool IsHarmless(Answer answer) {
  return answer != Answer::kAccepted && answer != Answer::kInDoubt;
}

bool HasBadTask(const Facts& facts, TaskEnd end) {
  return facts.bad_task != nullptr && EndOf(*facts.bad_task) == end;
}

// The decision table: the first row that applies is the verdict on what the BMC
// answered. version_verdict.cc has the table of what the versions add.
struct Row {
  Claim claim;
  bool (*applies)(const Facts&);
  Verdict (*judge)(const Facts&);
};

constexpr std::array kRows = {
    Row{Claim::kNone, [](const Facts& f) { return f.run.was_interrupted; },
        Interrupted},
    Row{Claim::kNone,
        [](const Facts& f) { return !f.run.worker_failure.empty(); },
        WorkerDied},
    Row{Claim::kNone,
        [](const Facts& f) {
          const bool is_harmless = IsHarmless(f.image) && IsHarmless(f.reboot);
          return f.run.login_refused == kHttpUnauthorized &&
                 (is_harmless || f.run.was_continued || f.run.requests.empty());
        },
        LoginRefused},
    Row{Claim::kNone, [](const Facts& f) { return !f.run.is_complete; },
        LogEnds},
    Row{Claim::kNone,
        [](const Facts& f) {
          const bool no_response =
              !f.run.any_response && !HasSentRequest(f.run);
          // An update that was killed may have had no time for a response.
          return f.run.was_continued ? IsUntrusted(f.run.transfer_failure)
                                     : no_response;
        },
        Unreachable},
    Row{Claim::kNone,
        [](const Facts& f) {
          return f.image == Answer::kNone && f.reboot != Answer::kNone;
        },
        RebootOnly},
    Row{Claim::kOpen,
        [](const Facts& f) { return f.image == Answer::kInDoubt; },
        ImageInDoubt},
    Row{Claim::kOpen,
        [](const Facts& f) {
          return f.image == Answer::kRejected && f.has_task &&
                 LastRejection(f.run, SendsImage)->status != kHttpUnauthorized;
        },
        ImageAcceptedByRule},
    Row{Claim::kNone,
        [](const Facts& f) { return f.image == Answer::kRejected; },
        ImageRejected},
    Row{Claim::kNone,
        [](const Facts& f) { return f.image == Answer::kNotSent; },
        ImageNotSent},
    Row{Claim::kNone, [](const Facts& f) { return f.run.is_not_needed; },
        NotNeeded},
    Row{Claim::kNone,
        [](const Facts& f) {
          return f.image == Answer::kNone &&
                 f.run.login_refused == kHttpForbidden;
        },
        InventoryForbidden},
    Row{Claim::kNone,
        [](const Facts& f) {
          return f.image == Answer::kNone && IsInventoryUnanswered(f.run);
        },
        InventoryUnanswered},
    Row{Claim::kNone, [](const Facts& f) { return f.image == Answer::kNone; },
        NoImageRequest},
    Row{Claim::kTaskFailure,
        [](const Facts& f) { return HasBadTask(f, TaskEnd::kFailed); },
        TaskFailed},
    Row{Claim::kCritical,
        [](const Facts& f) { return HasBadTask(f, TaskEnd::kCritical); },
        TaskCritical},
    Row{Claim::kNone,
        [](const Facts& f) { return HasBadTask(f, TaskEnd::kPollsRefused); },
        TaskPollsRefused},
    Row{Claim::kOpen,
        [](const Facts& f) { return HasBadTask(f, TaskEnd::kTimedOut); },
        TaskTimedOut},
    Row{Claim::kOpen,
        [](const Facts& f) { return HasBadTask(f, TaskEnd::kGoneEarly); },
        TaskGoneEarly},
    Row{Claim::kOpen,
        [](const Facts& f) { return HasBadTask(f, TaskEnd::kGoneLate); },
        TaskGoneLate},
    Row{Claim::kOpen,
        [](const Facts& f) { return HasBadTask(f, TaskEnd::kUndecided); },
        TaskUndecided},
    Row{Claim::kOpen,
        [](const Facts& f) { return HasBadTask(f, TaskEnd::kUnreadable); },
        TaskUnreadable},
    Row{Claim::kOpen, [](const Facts& f) { return f.bad_task != nullptr; },
        TaskUnfinished},
    Row{Claim::kOpen,
        [](const Facts& f) { return f.activation == Answer::kInDoubt; },
        ActivationInDoubt},
    Row{Claim::kFailed,
        [](const Facts& f) {
          return f.activation == Answer::kRejected ||
                 f.activation == Answer::kNotSent;
        },
        ActivationRejected},
    Row{Claim::kOpen, [](const Facts& f) { return f.lacks_activation; },
        ActivationMissing},
    Row{Claim::kOpen, [](const Facts& f) { return !f.has_task; }, NoTask},
    Row{Claim::kFailed,
        [](const Facts& f) {
          return f.reboot == Answer::kRejected || HasFailedRebootTask(f);
        },
        RebootRejected},
    Row{Claim::kOpen,
        [](const Facts& f) { return f.reboot == Answer::kInDoubt; },
        RebootInDoubt},
    Row{Claim::kFailed,
        [](const Facts& f) { return f.reboot == Answer::kNotSent; },
        RebootNotSent},
    Row{Claim::kSuccess,
        [](const Facts& f) {
          return f.reboot == Answer::kAccepted && f.is_staged;
        },
        StagedAndRebooted},
    Row{Claim::kSuccess,
        [](const Facts& f) { return f.reboot == Answer::kAccepted; },
        DoneAndRebooted},
    Row{Claim::kStaged,
        [](const Facts& f) {
          return f.is_staged &&
                 (f.run.reboot_skipped || !f.run.reboot_withheld.empty());
        },
        Staged},
    Row{Claim::kSuccess,
        [](const Facts& f) { return !f.run.reboot_withheld.empty(); },
        DoneNotRebooted},
    Row{Claim::kSuccess, [](const Facts& f) { return f.run.reboot_skipped; },
        DoneByRules},
    Row{Claim::kSuccess, [](const Facts& /*f*/) { return true; },
        DoneNotRebooted},
};

const Row& RowFor(const Facts& facts) {
  return *std::find_if(kRows.begin(), kRows.end(),
                       [&facts](const Row& one) { return one.applies(facts); });
}

// The verdict that the tool logged; nothing if it has another form.
std::optional<Verdict> LoggedBy(const Run& run) {
  if (!run.verdict) return std::nullopt;
  const std::string& text = run.verdict->outcome;
  for (const Outcome outcome : kOutcomes) {
    const std::string start = std::string(NameOf(outcome)) + ". ";
    if (text.rfind(start, 0) == 0) {
      return Verdict{outcome, text.substr(start.size()), run.verdict->cause,
                     run.verdict->next};
    }
  }
  return std::nullopt;
}

}  // namespace

Claim ClaimOf(const Run& run) { return RowFor(FactsOf(run)).claim; }

bool CanStillChange(const Run& run) {
  const Facts facts = FactsOf(run);
  switch (RowFor(facts).claim) {
    case Claim::kOpen:
    case Claim::kSuccess:  // a BMC can restart its own firmware later
      return true;
    case Claim::kCritical:
      return facts.reboot == Answer::kAccepted && NamesComponents(run.firmware);
    case Claim::kNone:
    case Claim::kStaged:
    case Claim::kTaskFailure:
    case Claim::kFailed:
      break;
  }
  return false;
}

bool CanApplyPending(const Run& run) {
  const Facts facts = FactsOf(run);
  return facts.reboot == Answer::kAccepted ||
         RowFor(facts).claim == Claim::kOpen;
}

Verdict JudgeRun(const Run& run) {
  if (auto logged = LoggedBy(run)) return *std::move(logged);
  if (!run.is_update && !run.was_interrupted && run.worker_failure.empty() &&
      run.login_refused == 0 && run.details.empty()) {
    return {Outcome::kNoUpdate, "The log contains no update.", {}, {}};
  }
  const Facts facts = FactsOf(run);
  const Row& row = RowFor(facts);
  Verdict verdict = JudgeByVersions(facts, row.claim, row.judge(facts));
  const bool has_unfinished_reboot = row.claim != Claim::kStaged &&
                                     !run.reboot_withheld.empty() &&
                                     facts.image == Answer::kAccepted &&
                                     (verdict.outcome == Outcome::kUnknown ||
                                      verdict.outcome == Outcome::kFailed);
  if (has_unfinished_reboot) {
    verdict.next += fmt::format(
        " A reboot now can interrupt an installation; to reboot the system "
        "anyway, run {}.",
        RebootCommand(run));
  }
  return verdict;
}

std::string TextOf(const Verdict& verdict, const std::string& bmc,
                   std::size_t columns) {
  std::string text;
  const auto add = [&](const char* name, const std::string& value) {
    constexpr std::size_t kTextColumn = 9;
    if (value.empty()) return;
    text += Wrapped(fmt::format("{:<{}}{}", name, kTextColumn, value), columns,
                    kTextColumn) +
            '\n';
  };
  add("Outcome:", fmt::format("{}{}. {}", NameOf(verdict.outcome),
                              bmc.empty() ? "" : " (" + Printable(bmc) + ")",
                              Printable(verdict.headline)));
  add("Cause:", Excerpt(verdict.cause, 2000));
  add("Next:", Printable(verdict.next));
  return text;
}

const char* NameOf(Verdict::Outcome outcome) {
  switch (outcome) {
    case Outcome::kUpdated:
      return "updated";
    case Outcome::kCurrent:
      return "current";
    case Outcome::kDone:
      return "done";
    case Outcome::kStaged:
      return "staged";
    case Outcome::kUnchanged:
      return "unchanged";
    case Outcome::kMismatch:
      return "mismatch";
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

std::string IdOf(Verdict::Outcome outcome) {
  std::string id = NameOf(outcome);
  std::replace(id.begin(), id.end(), ' ', '_');
  return id;
}

ExitCode ExitCodeOf(Verdict::Outcome outcome) {
  switch (outcome) {
    case Outcome::kUpdated:
    case Outcome::kCurrent:
    case Outcome::kDone:
    case Outcome::kStaged:
    case Outcome::kNoUpdate:
      return ExitCode::kDone;
    case Outcome::kFailed:
    case Outcome::kMismatch:
      return ExitCode::kFailed;
    case Outcome::kUnreachable:
    case Outcome::kLoginRefused:
      return ExitCode::kUnreachable;
    case Outcome::kInterrupted:
      return ExitCode::kInterrupted;
    case Outcome::kUnknown:
    case Outcome::kUnchanged:
      return ExitCode::kUnknown;
  }
  return ExitCode::kUnknown;
}

}  // namespace quorvane::tool
