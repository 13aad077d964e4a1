// SPDX-License-Identifier: Apache-2.0
// The state of a run, built from its events. It can be displayed at any moment.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tools/quorvane/run/bmc_text.h"
#include "tools/quorvane/run/events.h"
#include "tools/quorvane/run/versions.h"

namespace quorvane::tool {

/// A period in which the run did one thing.
struct Span {
  enum class Kind { kRequest, kRetryWait, kPollWait };
  Kind kind = Kind::kRequest;
  double begin = 0;
  double end = 0;  ///< Of an open span: the time of the last event.
  bool is_open = false;
  int planned_seconds = 0;  ///< Of a wait.
  int index = -1;           ///< Of a poll: its number
  int count = -1;           ///< and the maximum number of polls.
  std::string verb = {};    ///< Of a request, at debug level.
  std::string uri = {};
  long status = -1;        ///< 0: no response; -1: not known yet.
  bool is_sent = false;    ///< Of a request: its last byte was sent.
  std::int64_t sent = 0;   ///< Of a request: bytes that were sent so far
  std::int64_t total = 0;  ///< of so many; 0: not known.
};

/// A decision or a problem.
struct Remark {
  double time = 0;
  LogLevel level = LogLevel::INFO;
  std::string text = {};
};

struct TaskPoint {
  double time = 0;
  int percent = -1;
  std::string state = {};
};

/// How far a phase came.
enum class PhaseResult {
  kOpen,           ///< Not known, or not finished.
  kAccepted,       ///< The BMC accepted the request.
  kSucceeded,      ///< A task or a download succeeded.
  kFailed,         ///< A task failed, by the rules.
  kStaged,         ///< A task waits for a reboot.
  kNotFoundLate,   ///< A task disappeared (404) from 50 % on.
  kNotFoundEarly,  ///< A task disappeared (404) below 50 %.
  kTimedOut,       ///< The last poll is over.
  kRejected,       ///< Every URI rejected the request.
  kInterrupted,    ///< The tool was interrupted.
};

/// A phase, possibly unfinished.
struct PhaseRun {
  Phase phase = Phase::kNone;
  Phase task_of = Phase::kNone;  ///< Of a task: the phase that started it.
  double begin = 0;
  double end = 0;
  PhaseResult result = PhaseResult::kOpen;
  int uri_count = -1;
  int uri_index = -1;    ///< The current one, from 1.
  int attempt = 1;       ///< At this URI.
  std::string uri = {};  ///< The current one, or that of the task.
  int poll_seconds = 0;
  std::vector<Span> spans = {};
  std::vector<Remark> remarks = {};
  std::vector<TaskPoint> task = {};
  TaskReport report = {};  ///< From the last poll that returned the task.
  long failed_poll = -1;   ///< Status of the last poll, if it failed; 0: none.
};

/// A request that can change the BMC: upload, SimpleUpdate, activation, reboot.
struct ChangeRequest {
  enum class Fate {
    kPlanned,     ///< Not sent: a wait before it did not end.
    kNotSent,     ///< No byte of it reached the BMC.
    kSending,     ///< Sent, at least in part; what follows is not known.
    kNoResponse,  ///< Sent, at least in part, but the response was lost.
    kAnswered,    ///< The BMC responded with `status`.
  };
  Phase phase = Phase::kNone;
  std::string uri = {};
  Fate fate = Fate::kPlanned;
  long status = -1;
  std::string text = {};     ///< The reason that the BMC or libcurl states.
  bool is_complete = false;  ///< The last byte was sent.

  [[nodiscard]] bool WasAccepted() const {
    return fate == Fate::kAnswered && status >= 200 && status < 300;
  }
  /// Whether the BMC may have acted on it.
  [[nodiscard]] bool IsInDoubt() const {
    return fate == Fate::kSending || fate == Fate::kNoResponse;
  }
};

/// How the verdict of the tool reads in its log.
struct LoggedVerdict {
  std::string outcome = {};  ///< "done. The update is done; ..."
  std::string cause = {};
  std::string next = {};
};

/// The comparison of the versions with those before the update.
struct Verification {
  std::string skipped = {};  ///< Why there is none; may be empty.
  bool has_begun = false;
  int limit_seconds = 0;
  std::string state = {};  ///< The last thing that it saw.
  std::string end = {};    ///< Why it ended, as a sentence.
  long status = -1;        ///< Of the last response that is no inventory.
  long refused = 0;        ///< 401 or 403, if the BMC refused the account.
  std::vector<std::string> unread = {};  ///< Members that could not be read.
  bool is_empty = false;                 ///< The inventory lists no member.
};

/// @{ How the titles of runs of `quorvane update` and `quorvane watch` begin.
inline constexpr std::string_view kUpdateTitle = "update of ";
inline constexpr std::string_view kWatchTitle = "watch of ";
/// @}

struct Run {
  std::string title = {};  ///< What the tool does, if it logged that.
  /// What the tool logged about the run, e.g. {"BMC", "192.0.2.7"}.
  std::vector<std::pair<std::string, std::string>> details = {};
  bool is_update = false;
  bool is_complete = false;  ///< The log contains its end.
  bool was_interrupted = false;
  bool was_continued = false;        ///< By `quorvane watch`.
  std::string worker_failure = {};   ///< Why the worker process died.
  bool reboot_skipped = false;       ///< By the rules.
  std::string reboot_withheld = {};  ///< Why the tool requested no reboot.
  int earlier_runs = 0;              ///< In the same log.
  bool is_not_needed = false;        ///< Every expected version is installed.
  Firmware firmware = {};
  Verification verification = {};
  int items_read = -1;     ///< Before the update.
  long login_refused = 0;  ///< 401 or 403
  bool any_response = false;
  std::string transfer_failure =
      {};  ///< Why the last failed request got no response.
  std::vector<ChangeRequest> requests = {};
  std::vector<PhaseRun> phases = {};
  std::optional<LoggedVerdict> verdict = {};  ///< If the tool logged it.
  double begin = 0;
  double end = 0;
  std::string begin_stamp = {};  ///< Of the first record, see `Record::stamp`.
  std::string end_stamp = {};    ///< Of the last one.

  [[nodiscard]] const PhaseRun* Last(Phase phase) const;
  /// The value of a detail; empty if the log does not contain it.
  [[nodiscard]] std::string Detail(std::string_view name) const;
  [[nodiscard]] bool HasUpdateTitle() const {
    return title.rfind(kUpdateTitle, 0) == 0 ||
           title.rfind(kWatchTitle, 0) == 0;
  }
  [[nodiscard]] bool IsVerifying() const {
    return !phases.empty() && phases.back().phase == Phase::kVerification &&
           phases.back().result == PhaseResult::kOpen;
  }
};

/// Builds a run, event by event.
class RunBuilder {
 public:
  void Add(const Event& event);
  [[nodiscard]] const Run& run() const { return run_; }
  /// The run as it is if nothing follows.
  [[nodiscard]] Run Ended() const;

 private:
  void Dispatch(const Event& event);
  EventKind KindOf(const Event& event);
  void BeginRun(const Event& event);
  void Continue(const Event& event);
  void AddDetail(const Event& event);
  void AddMember(const Event& event);
  void AddVerification(const Event& event);
  void AddRefusedLogin(const Event& event);
  void EndRun(const Event& event);
  void Interrupt(const Event& event);
  void BeginPhase(Phase phase, const Event& event);
  void EndPhase(double time);
  [[nodiscard]] Phase RequestOfTask(const std::string& uri) const;
  void ResolveRequest(PhaseResult result);
  void AddAttempt(const Event& event);
  void AddRequest(const Event& event);
  void AddStatus(const Event& event);
  void AddBody(const std::string& body);
  void AddFailure(const Event& event);
  void AddPoll(const Event& event);
  void AddTaskState(const Event& event);
  void EndTask(const Event& event, PhaseResult result);
  void AddRemark(const Event& event);
  void OpenSpan(Span::Kind kind, const Event& event);
  void CloseSpan(double time, long status);
  Span* CurrentSpan();
  PhaseRun& CurrentPhase();
  ChangeRequest* CurrentRequest();
  void PlanRequest(const std::string& uri, ChangeRequest::Fate fate);

  Run run_;
  std::unordered_map<std::string, std::size_t> members_;  // by URI
  bool has_requests_ = false;  // the log contains debug records
  bool awaits_state_ = false;  // a poll has begun and got no state yet
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_
