// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/verdict.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "quorvane/config.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

using Fate = ChangeRequest::Fate;
using Outcome = Verdict::Outcome;

// What the BMC did with the requests of a kind; the strongest answer counts.
enum class Answer { kNone, kNotSent, kRejected, kInDoubt, kAccepted };

// What the task of an update or an activation proves.
enum class TaskEnd {
  kCompleted,
  kStaged,      // waits for a reboot
  kFailed,      // its state is a failure
  kCritical,    // Completed, but with a critical status or message
  kTimedOut,    // polling ended before the task
  kGoneLate,    // HTTP 404 from 50 % on
  kGoneEarly,   // HTTP 404 below 50 %
  kUnreadable,  // Completed, but the rest of the task cannot be read
  kUndecided,   // only a rule ended polling, its state is no end
  kUnfinished,  // the log ends first
};

// What a run proves. A verdict states nothing that does not follow from it.
struct Facts {
  const Run& run;
  Answer image = Answer::kNone;
  Answer activation = Answer::kNone;
  Answer reboot = Answer::kNone;
  const PhaseRun* bad_task = nullptr;  // the first that proves no success
  bool is_staged = false;
  bool has_task = false;  // of the last request that started a change
};

// A gateway lost the response of the service behind it (RFC 9110, sections
// 15.6.3 and 15.6.5).
bool IsFromGateway(const ChangeRequest& request) {
  return request.status == 502 || request.status == 504;
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

TaskEnd EndOfDecided(const PhaseRun& task, const std::string& state) {
  if (IsFailure(state)) return TaskEnd::kFailed;
  const bool is_success = task.result == PhaseResult::kSucceeded;
  if (state != "Completed") {
    return is_success || state != "Interrupted" ? TaskEnd::kUndecided
                                                : TaskEnd::kFailed;
  }
  if (!is_success) return TaskEnd::kUndecided;
  if (task.report.is_unreadable) return TaskEnd::kUnreadable;
  const bool is_critical =
      task.report.status == "Critical" || !task.report.critical.empty();
  return is_critical ? TaskEnd::kCritical : TaskEnd::kCompleted;
}

TaskEnd EndOf(const PhaseRun& task) {
  const std::string state = task.task.empty() ? "" : task.task.back().state;
  switch (task.result) {
    case PhaseResult::kSucceeded:
    case PhaseResult::kFailed:
      return EndOfDecided(task, state);
    case PhaseResult::kStaged:
      // The library also takes a task that stays in Starting for staged.
      return state == "Scheduled" ? TaskEnd::kStaged : TaskEnd::kUndecided;
    case PhaseResult::kNotFoundLate:
      return TaskEnd::kGoneLate;
    case PhaseResult::kNotFoundEarly:
      return TaskEnd::kGoneEarly;
    case PhaseResult::kTimedOut:
      return TaskEnd::kTimedOut;
    case PhaseResult::kOpen:
    case PhaseResult::kInterrupted:
    case PhaseResult::kAccepted:
    case PhaseResult::kRejected:
      break;
  }
  return TaskEnd::kUnfinished;
}

// Whether the BMC answered an activation with 202 (RFC 9110, section 15.3.3).
bool PromisesTask(const Run& run) {
  constexpr long kAcceptedStatus = 202;
  return std::any_of(
      run.requests.begin(), run.requests.end(), [](const ChangeRequest& one) {
        return one.phase == Phase::kActivation && one.status == kAcceptedStatus;
      });
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
    // The library polls the task of the upload again if the activation names
    // none; that proves nothing about the activation.
    if (std::find(polled.begin(), polled.end(), phase.uri) != polled.end()) {
      continue;
    }
    polled.push_back(phase.uri);
    facts.has_task = true;
    const TaskEnd end = EndOf(phase);
    facts.is_staged = facts.is_staged || end == TaskEnd::kStaged;
    if (facts.bad_task == nullptr && end != TaskEnd::kCompleted &&
        end != TaskEnd::kStaged) {
      facts.bad_task = &phase;
    }
  }
  return facts;
}

// "--bmc 192.0.2.7 --user admin", as far as the log names them.
std::string Account(const Run& run) {
  std::string options;
  for (const auto& [option, name] :
       {std::pair("--bmc", "BMC"), std::pair("--user", "User")}) {
    const std::string value = run.Detail(name);
    if (!value.empty()) options += fmt::format(" {} {}", option, value);
  }
  const std::string check = run.Detail("Certificate check");
  constexpr std::string_view kKey = "key ";
  constexpr std::string_view kFile = "certificates in ";
  if (check.rfind(kKey, 0) == 0) {
    options +=
        " --pin " + check.substr(kKey.size(), check.find(',') - kKey.size());
  }
  if (const auto file = check.find(kFile); file != std::string::npos) {
    options += " --cacert " + check.substr(file + kFile.size());
  }
  const std::string rules = run.Detail("Rules");
  const std::string rules_file = rules.substr(0, rules.find(" (SHA-256"));
  if (!rules_file.empty() && rules_file != ResolveConfigPath()) {
    options += " --rules " + rules_file;
  }
  return options;
}

std::string CompareVersions(const Run& run) {
  return fmt::format(
      "Run `quorvane inventory{}` and compare the versions with those before "
      "the update.",
      Account(run));
}

std::string RebootCommand(const Run& run) {
  return fmt::format("`quorvane restart{}`", Account(run));
}

// A task that still exists, then the versions.
std::string CheckTask(const Run& run) {
  const PhaseRun* task = run.Last(Phase::kTask);
  if (task == nullptr || task->uri.empty()) {
    return run.requests.empty() ? CompareVersions(run)
                                : "Look for a new task with GET "
                                  "/redfish/v1/TaskService/Tasks. " +
                                      CompareVersions(run);
  }
  return fmt::format("Check the task with GET {}. {}", task->uri,
                     CompareVersions(run));
}

std::string Sentence(std::string text) {
  // The text of a BMC may end without a period.
  if (!text.empty() && text.back() != '.') text += '.';
  return text;
}

bool IsMissing(const ChangeRequest& request) {
  return request.status == 404 || request.status == 405;
}

// "Upload at /a: HTTP 413 (The image is too large.)"
std::string TextOf(const ChangeRequest& request) {
  std::string text =
      fmt::format("{} at {}: ", NameOf(request.phase), PathOf(request.uri));
  switch (request.fate) {
    case Fate::kPlanned:
      return text + "not sent";
    case Fate::kNotSent:
      text += "not sent";
      break;
    case Fate::kSending:
      text += request.is_complete ? "sent completely, no response yet"
                                  : "no response yet";
      break;
    case Fate::kNoResponse:
      text += "sent, no response";
      break;
    case Fate::kAnswered:
      text += fmt::format("HTTP {}", request.status);
      break;
  }
  // The text about a missing endpoint only repeats the status.
  const bool is_needed = !request.text.empty() && !IsMissing(request);
  return is_needed ? fmt::format("{} ({})", text, Excerpt(request.text, 100))
                   : text;
}

// All requests that can change the BMC, the same request once with its count.
std::string ListOf(const Run& run) {
  std::string list;
  for (auto one = run.requests.begin(); one != run.requests.end();) {
    const std::string text = TextOf(*one);
    const auto next = std::find_if(
        one, run.requests.end(),
        [&text](const auto& other) { return TextOf(other) != text; });
    if (one->fate != Fate::kPlanned) {
      list += (list.empty() ? "" : "; ") + text;
      if (next - one > 1) list += fmt::format(", {} times", next - one);
    }
    one = next;
  }
  return list.empty() ? list : Sentence("Requests: " + list);
}

bool HasSentRequest(const Run& run) {
  return std::any_of(
      run.requests.begin(), run.requests.end(), [](const auto& one) {
        return one.fate != Fate::kPlanned && one.fate != Fate::kNotSent;
      });
}

// The answer that ended the phase: a missing endpoint only if there is no other
// rejection.
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

constexpr long kUnauthorized = 401;  // RFC 9110, section 15.5.2

bool IsActivation(Phase phase) { return phase == Phase::kActivation; }
bool IsReboot(Phase phase) { return phase == Phase::kReboot; }

// What happened to the reboot, to append to a verdict on a task.
std::string RebootClause(const Facts& facts) {
  switch (facts.reboot) {
    case Answer::kAccepted:
      return "; the BMC accepted a reboot of the system";
    case Answer::kRejected:
      return fmt::format("; the BMC rejected the reboot (HTTP {})",
                         LastRejection(facts.run, IsReboot)->status);
    case Answer::kInDoubt:
      return "; a reboot request got no response";
    case Answer::kNotSent:
      return "; the reboot request did not reach the BMC";
    case Answer::kNone:
      break;
  }
  return facts.run.reboot_withheld.empty()
             ? std::string()
             : "; the system was not rebooted, because " +
                   facts.run.reboot_withheld;
}

// "Upload at /a returned HTTP 413: Too large."
std::string CauseOf(const ChangeRequest& rejection) {
  std::string cause =
      fmt::format("{} at {} returned HTTP {}", NameOf(rejection.phase),
                  PathOf(rejection.uri), rejection.status);
  if (!rejection.text.empty()) cause += ": " + rejection.text;
  return Sentence(cause);
}

// The cause, and all requests if there were others.
std::string CauseAndList(const Run& run, const ChangeRequest& rejection) {
  const bool has_others = std::any_of(run.requests.begin(), run.requests.end(),
                                      [&rejection](const auto& one) {
                                        return TextOf(one) != TextOf(rejection);
                                      });
  return CauseOf(rejection) + (has_others ? " " + ListOf(run) : "");
}

Verdict LoginRefused(const Facts& facts) {
  return {Outcome::kLoginRefused,
          fmt::format("The BMC refused the login (HTTP {}).", kUnauthorized),
          ListOf(facts.run),
          "Check the user and the password. More attempts can lock the "
          "account."};
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
  return HasSentRequest(facts.run) ? CheckTask(facts.run) : std::string();
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

// Why the download failed that follows a rejected SimpleUpdate; empty if the
// run did not end there.
std::string FailedDownload(const Run& run) {
  if (run.phases.empty() || run.phases.back().phase != Phase::kDownload) {
    return {};
  }
  const std::vector<Remark>& remarks = run.phases.back().remarks;
  return " The download of the image failed as well" +
         (remarks.empty() ? "." : ": " + Sentence(remarks.back().text));
}

std::string NextAfterRejection(const Run& run, long status) {
  if (!FailedDownload(run).empty()) {
    return "Fix the problem that the BMC reports, or download the image and "
           "use --file.";
  }
  if (status == 403) {
    return "Use an account with the privilege to update firmware.";
  }
  if (status != 404 && status != 405) {
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
  if (rejection.status == kUnauthorized) return LoginRefused(facts);
  if (facts.has_task) {
    return {Outcome::kUnknown,
            fmt::format("The BMC answered the image with HTTP {}, but the "
                        "rules count that as accepted{}.",
                        rejection.status, RebootClause(facts)),
            CauseAndList(run, rejection), CheckTask(run)};
  }
  return {Outcome::kFailed,
          fmt::format("The BMC rejected the update{}.", RebootClause(facts)),
          CauseAndList(run, rejection) + FailedDownload(run),
          NextAfterRejection(run, rejection.status)};
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
      "Run `quorvane report LOG` to see each step."};
}

Verdict ActivationInDoubt(const Facts& facts) {
  return {Outcome::kUnknown,
          "The image was uploaded, but the response to its activation was "
          "lost. The BMC may still activate it" +
              RebootClause(facts) + ".",
          ListOf(facts.run),
          "Look for a new task with GET /redfish/v1/TaskService/Tasks. " +
              CompareVersions(facts.run)};
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

// "Last state: Running. The last poll returned HTTP 401 (login refused)."
std::string LastPoll(const Run& run, const PhaseRun& task) {
  std::string text = task.task.empty() ? "No poll returned a state."
                                       : fmt::format("Last state: {}.",
                                                     task.task.back().state);
  if (task.failed_poll == 0) {
    text += " The last poll got no response: " + Sentence(run.transfer_failure);
  }
  if (task.failed_poll > 0) {
    text += fmt::format(" The last poll returned HTTP {}{}.", task.failed_poll,
                        task.failed_poll == 401 ? " (login refused)" : "");
  }
  return text;
}

Verdict BadTask(const Facts& facts) {
  const Run& run = facts.run;
  const PhaseRun& task = *facts.bad_task;
  const std::string clause = RebootClause(facts);
  const std::string state = task.task.empty() ? "" : task.task.back().state;
  const TaskReport& report = task.report;
  switch (EndOf(task)) {
    case TaskEnd::kFailed:
      return {
          Outcome::kFailed,
          fmt::format("The task failed (state {}){}.", state, clause),
          report.messages,
          "Fix the cause, then run the update again. " + CompareVersions(run)};
    case TaskEnd::kCritical:
      return {
          Outcome::kFailed,
          fmt::format("The task completed, but reports a critical "
                      "problem{}.",
                      clause),
          !report.critical.empty()  ? report.critical
          : report.messages.empty() ? "TaskStatus: Critical."
                                    : report.messages,
          "Fix the cause, then run the update again. " + CompareVersions(run)};
    case TaskEnd::kTimedOut:
      if (task.failed_poll == kUnauthorized) {
        return {Outcome::kUnknown,
                fmt::format("The BMC refused the last polls of the task (login "
                            "refused), so its end is not known{}.",
                            clause),
                LastPoll(run, task),
                "Check the user and the password; more attempts can lock the "
                "account. " +
                    CheckTask(run)};
      }
      return {Outcome::kUnknown,
              fmt::format("The task did not end within the time limit of the "
                          "rules{}.",
                          clause),
              LastPoll(run, task), CheckTask(run)};
    case TaskEnd::kGoneEarly:
      return {
          Outcome::kUnknown,
          fmt::format("{}{}.",
                      task.task.empty()
                          ? "The BMC named a task, but returned HTTP 404 for "
                            "it"
                          : "The task disappeared (HTTP 404) before it "
                            "reported 50 %",
                      clause),
          {},
          "Look for a task with GET /redfish/v1/TaskService/Tasks. " +
              CompareVersions(run)};
    case TaskEnd::kGoneLate:
      return {Outcome::kUnknown,
              fmt::format("The task disappeared (HTTP 404) after 50 %, as "
                          "happens when the BMC restarts to apply firmware{}.",
                          clause),
              report.messages, CompareVersions(run)};
    case TaskEnd::kUndecided:
      return {Outcome::kUnknown,
              fmt::format("Polling ended while the task was in the state "
                          "{}{}.",
                          state, clause),
              report.messages, CheckTask(run)};
    case TaskEnd::kUnreadable:
      return {Outcome::kUnknown,
              fmt::format("The task completed, but its status and messages "
                          "cannot be read{}.",
                          clause),
              {},
              CheckTask(run)};
    case TaskEnd::kUnfinished:
    case TaskEnd::kCompleted:
    case TaskEnd::kStaged:
      break;
  }
  return {Outcome::kUnknown, "The task did not end" + clause + ".",
          LastPoll(run, task), CheckTask(run)};
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
  return {Outcome::kDone, "The update is done; the system reboots.", {}, {}};
}

Verdict DoneByRules(const Facts& /*facts*/) {
  return {Outcome::kDone,
          "The update is done; the rules file requires no reboot.",
          {},
          {}};
}

Verdict DoneNotRebooted(const Facts& facts) {
  return {Outcome::kDone,
          facts.run.reboot_withheld.empty()
              ? std::string("The update is done; no reboot was requested.")
              : "The update is done" + RebootClause(facts) + ".",
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
      if (LastRejection(run, IsReboot)->status == kUnauthorized) {
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

// The decision table: the first row that applies is the verdict.
struct Row {
  bool (*applies)(const Facts&);
  Verdict (*judge)(const Facts&);
};

constexpr bool HasReboot(const Facts& facts, Answer answer) {
  return facts.reboot == answer;
}

constexpr std::array kRows = {
    Row{[](const Facts& f) { return f.run.was_interrupted; }, Interrupted},
    Row{[](const Facts& f) { return !f.run.worker_failure.empty(); },
        WorkerDied},
    Row{[](const Facts& f) {
          return f.run.login_refused == 401 && f.image != Answer::kAccepted &&
                 f.image != Answer::kInDoubt && f.reboot != Answer::kAccepted &&
                 f.reboot != Answer::kInDoubt;
        },
        LoginRefused},
    Row{[](const Facts& f) { return !f.run.is_complete; }, LogEnds},
    Row{[](const Facts& f) {
          return !f.run.any_response && !HasSentRequest(f.run);
        },
        Unreachable},
    Row{[](const Facts& f) {
          return f.image == Answer::kNone && f.reboot != Answer::kNone;
        },
        RebootOnly},
    Row{[](const Facts& f) { return f.image == Answer::kInDoubt; },
        ImageInDoubt},
    Row{[](const Facts& f) { return f.image == Answer::kRejected; },
        ImageRejected},
    Row{[](const Facts& f) { return f.image == Answer::kNotSent; },
        ImageNotSent},
    Row{[](const Facts& f) { return f.image == Answer::kNone; },
        NoImageRequest},
    Row{[](const Facts& f) { return f.bad_task != nullptr; }, BadTask},
    Row{[](const Facts& f) { return f.activation == Answer::kInDoubt; },
        ActivationInDoubt},
    Row{[](const Facts& f) {
          return f.activation == Answer::kRejected ||
                 f.activation == Answer::kNotSent;
        },
        ActivationRejected},
    Row{[](const Facts& f) { return !f.has_task; }, NoTask},
    Row{[](const Facts& f) {
          return HasReboot(f, Answer::kRejected) || HasFailedRebootTask(f);
        },
        RebootRejected},
    Row{[](const Facts& f) { return HasReboot(f, Answer::kInDoubt); },
        RebootInDoubt},
    Row{[](const Facts& f) { return HasReboot(f, Answer::kNotSent); },
        RebootNotSent},
    Row{[](const Facts& f) {
          return HasReboot(f, Answer::kAccepted) && f.is_staged;
        },
        StagedAndRebooted},
    Row{[](const Facts& f) { return HasReboot(f, Answer::kAccepted); },
        DoneAndRebooted},
    Row{[](const Facts& f) {
          return f.is_staged &&
                 (f.run.reboot_skipped || !f.run.reboot_withheld.empty());
        },
        Staged},
    Row{[](const Facts& f) { return !f.run.reboot_withheld.empty(); },
        DoneNotRebooted},
    Row{[](const Facts& f) { return f.run.reboot_skipped; }, DoneByRules},
    Row{[](const Facts& /*f*/) { return true; }, DoneNotRebooted},
};

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
    case TaskEnd::kUndecided:
    case TaskEnd::kUnfinished:
      return "the task may still run";
    case TaskEnd::kGoneEarly:
      return "the task disappeared before it reported 50 %";
  }
  return nullptr;
}

}  // namespace

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

Verdict JudgeRun(const Run& run) {
  if (auto logged = LoggedBy(run)) return *std::move(logged);
  if (!run.is_update && !run.was_interrupted && run.worker_failure.empty() &&
      run.login_refused == 0 && run.details.empty()) {
    return {Outcome::kNoUpdate, "The log contains no update.", {}, {}};
  }
  const Facts facts = FactsOf(run);
  const auto* const row =
      std::find_if(kRows.begin(), kRows.end(),
                   [&facts](const Row& one) { return one.applies(facts); });
  Verdict verdict = row->judge(facts);
  const bool has_unfinished_reboot =
      !run.reboot_withheld.empty() && facts.image == Answer::kAccepted &&
      verdict.outcome != Outcome::kDone && verdict.outcome != Outcome::kStaged;
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

std::string IdOf(Verdict::Outcome outcome) {
  std::string id = NameOf(outcome);
  std::replace(id.begin(), id.end(), ' ', '_');
  return id;
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
