// SPDX-License-Identifier: Apache-2.0
// One run put together from its events: what the views show, at any moment.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_

#include <optional>
#include <string>
#include <vector>

#include "tools/quorvane/run/events.h"

namespace quorvane::tool {

/// A stretch of time in which the run did one thing.
struct Span {
  enum class Kind { kRequest, kRetryWait, kPollWait };
  Kind kind = Kind::kRequest;
  double begin = 0;
  double end = 0;  ///< Of an open span: the last that was heard.
  bool is_open = false;
  int planned_seconds = 0;  ///< Of a wait.
  int index = -1;           ///< Of a poll: its number, and
  int count = -1;           ///< how many there may be.
  std::string verb = {};    ///< Of a request, at debug level.
  std::string uri = {};
  long status = -1;  ///< 0: no answer; -1: not known (yet).
};

/// Something that was decided, or went wrong.
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

/// A phase as far as it went.
struct PhaseRun {
  enum class Ending {
    kOpen,      ///< Not known, or not over.
    kTaken,     ///< The BMC took the request.
    kWell,      ///< A task ended well.
    kBadly,     ///< A task ended badly, by the rules.
    kStaged,    ///< A task waits for a restart.
    kGone,      ///< A task went away past half way.
    kMissing,   ///< A task went away before half way.
    kTimedOut,  ///< The last poll passed.
    kRefused,   ///< All URIs in vain.
  };
  Phase phase = Phase::kNone;
  Phase task_of = Phase::kNone;  ///< Of a task: the phase that it belongs to.
  double begin = 0;
  double end = 0;
  Ending ending = Ending::kOpen;
  int uri_count = -1;
  int uri_index = -1;    ///< The one being tried, from 1.
  int attempt = 1;       ///< Of that URI.
  std::string uri = {};  ///< Likewise, or the task.
  int poll_seconds = 0;
  std::vector<Span> spans = {};
  std::vector<Remark> remarks = {};
  std::vector<TaskPoint> task = {};
};

/// The first "no" of the BMC, which is the cause of what follows.
struct Refusal {
  Phase phase = Phase::kNone;
  std::string uri = {};
  long status = 0;
  std::string words = {};  ///< The BMC's own; may be empty.
};

struct Run {
  std::string title = {};  ///< What the tool was asked to do, if it says so.
  bool is_update = false;
  bool is_complete = false;  ///< The log tells its end.
  bool was_interrupted = false;
  bool restart_left_out = false;
  bool named_no_task = false;  ///< Accepted, with nothing to follow.
  int earlier_runs = 0;        ///< In the same log.
  int items_read = -1;
  long login_refused = 0;  ///< 401 or 403
  bool any_answer = false;
  std::string transfer_failure = {};  ///< The last reason why no answer came.
  std::string task_words = {};        ///< What the task's messages said last.
  std::optional<Refusal> first_refusal = {};
  std::vector<PhaseRun> phases = {};
  double begin = 0;
  double end = 0;

  [[nodiscard]] const PhaseRun* Last(Phase phase) const;
  /// Of the upload or SimpleUpdate: did the BMC take it?
  [[nodiscard]] bool WasTaken() const;
};

/// Puts a run together, event by event.
class RunBuilder {
 public:
  void Take(const Event& event);
  [[nodiscard]] const Run& run() const { return run_; }

 private:
  void TakeRunEvent(const Event& event);
  void TakeEnding(const Event& event);
  void BeginRun(const Event& event);
  void BeginPhase(Phase phase, const Event& event);
  void EndPhase(double time);
  void EndAsking(PhaseRun::Ending ending);
  void TakeRequestEvent(const Event& event);
  void TakeTaskEvent(const Event& event);
  void TakeStatus(const Event& event);
  void TakeRefusalWords(const std::string& body);
  void OpenSpan(Span::Kind kind, const Event& event);
  void CloseSpan(double time, long status);
  Span* OpenOne();
  PhaseRun& Current();
  void Say(const Event& event, std::string text);

  Run run_;
  bool awaits_state_ = false;  // a poll has begun and brought no state yet
};

/// What a Redfish answer gives as its reasons (DSP0266, "Error responses"):
/// error.message and the messages of @Message.ExtendedInfo. A body that is
/// something else comes back cut short; a success document gives nothing.
std::string ErrorWords(const std::string& body);

/// The messages of a task's document (DSP2046, Task, Messages).
std::string TaskWords(const std::string& body);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_RUN_H_
