// SPDX-License-Identifier: Apache-2.0
// The state of a run, built from its events. It can be displayed at any moment.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_

#include <optional>
#include <string>
#include <vector>

#include "tools/quorvane/run/events.h"

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
  long status = -1;  ///< 0: no response; -1: not known yet.
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
};

/// The first rejection by the BMC: the cause of what follows.
struct Rejection {
  Phase phase = Phase::kNone;
  std::string uri = {};
  long status = 0;
  std::string text = {};  ///< The reason that the BMC states; may be empty.
};

struct Run {
  std::string title = {};  ///< What the tool does, if it logged that.
  bool is_update = false;
  bool is_complete = false;  ///< The log contains its end.
  bool was_interrupted = false;
  bool reboot_skipped = false;
  bool has_no_task = false;  ///< Accepted, but no task to poll.
  int earlier_runs = 0;      ///< In the same log.
  int items_read = -1;
  long login_refused = 0;  ///< 401 or 403
  bool any_response = false;
  std::string transfer_failure =
      {};  ///< Why the last failed request got no response.
  std::string task_messages = {};  ///< The last messages of the task.
  std::optional<Rejection> first_rejection = {};
  std::vector<PhaseRun> phases = {};
  double begin = 0;
  double end = 0;

  [[nodiscard]] const PhaseRun* Last(Phase phase) const;
  /// Whether the BMC accepted an upload or a SimpleUpdate.
  [[nodiscard]] bool WasAccepted() const;
};

/// Builds a run, event by event.
class RunBuilder {
 public:
  void Add(const Event& event);
  [[nodiscard]] const Run& run() const { return run_; }

 private:
  EventKind KindOf(const Event& event);
  void BeginRun(const Event& event);
  void BeginPhase(Phase phase, const Event& event);
  void EndPhase(double time);
  void ResolveRequest(PhaseResult result);
  void AddAttempt(const Event& event);
  void AddRequest(const Event& event);
  void AddStatus(const Event& event);
  void AddRejectionText(const std::string& body);
  void AddPoll(const Event& event);
  void AddTaskState(const Event& event);
  void EndTask(const Event& event, PhaseResult result);
  void AddRemark(const Event& event);
  void OpenSpan(Span::Kind kind, const Event& event);
  void CloseSpan(double time, long status);
  Span* CurrentSpan();
  PhaseRun& CurrentPhase();

  Run run_;
  bool awaits_state_ = false;  // a poll has begun and got no state yet
};

/// The reasons in a Redfish error response (DSP0266, "Error responses"):
/// error.message and the messages of @Message.ExtendedInfo. Of a body that is
/// not JSON, its beginning.
std::string ErrorText(const std::string& body);

/// The messages of a task resource (DSP2046, Task, Messages).
std::string TaskMessages(const std::string& body);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_
