// SPDX-License-Identifier: Apache-2.0
// What the records of a log say: the one reader of the library's words, for the
// live view, the report and the verdict alike.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_EVENTS_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_EVENTS_H_

#include <nlohmann/json.hpp>
#include <string>

#include "quorvane/logging.h"
#include "tools/quorvane/run/records.h"

namespace quorvane::tool {

enum class EventKind {
  kOther,            ///< Nothing that the views show.
  kRunNamed,         ///< The tool's own first line: `text` says what is run.
  kUpdateBegins,     ///< An update starts.
  kPhaseBegins,      ///< `phase`; `count` URIs to try.
  kUriTried,         ///< `uri`, the `index`-th of `count`.
  kRequestSent,      ///< `verb` and `uri` (debug level only).
  kRequestAnswered,  ///< `status` (debug level only).
  kRequestFailed,    ///< No answer; `text` says why.
  kStatus,           ///< The phase's request was answered with `status`.
  kBody,             ///< `text` is the body of that answer.
  kWaitBegins,       ///< `seconds`, then retry `index` of `count`.
  kTaskBegins,       ///< Task `uri` will be watched.
  kPollInterval,     ///< `seconds` before each poll.
  kPollBegins,       ///< Waits, then polls for the `index`-th time of `count`.
  kPollFailed,       ///< The poll brought no state; `status` if it was that.
  kTaskState,        ///< `state`, `percent` (-1: not told).
  kTaskBody,         ///< `text` is the task's document.
  kTaskEndsWell,     ///< `state`
  kTaskEndsBadly,    ///< `state`
  kTaskStaged,       ///< The task waits for a restart.
  kTaskGone,         ///< 404 past half way: taken for a restart.
  kTaskMissing,      ///< 404 before half way.
  kNoTask,           ///< The BMC named no task.
  kLoginRefused,     ///< `status` 401 or 403
  kItemsRead,        ///< The inventory was read: `count` items.
  kUploadsRefused,   ///< No upload was taken.
  kRestartLeftOut,   ///< The rules want no restart.
  kRunEnds,          ///< Nothing follows.
  kInterrupted,      ///< The tool was interrupted.
  kTrouble,          ///< Any other warning or error.
};

enum class Phase {
  kNone,
  kInventory,
  kSimpleUpdate,
  kDownload,
  kUpload,
  kBinaryUpload,
  kTask,
  kActivation,
  kRestart,
};

/// "Upload", as people read it.
const char* NameOf(Phase phase);

/// One record as the views understand it. Which fields are set depends on the
/// kind; the others keep their initial values.
struct Event {
  EventKind kind = EventKind::kOther;
  Phase phase = Phase::kNone;  ///< Of the kinds that begin or belong to one.
  double time = 0;             ///< As `Record::time`.
  std::string stamp = {};
  LogLevel level = LogLevel::INFO;
  std::string text = {};  ///< The message, or the part that the kind speaks of.
  std::string verb = {};
  std::string uri = {};
  std::string state = {};
  long status = -1;
  int index = -1;
  int count = -1;
  int seconds = -1;
  int percent = -1;
};

/// What `record` says. Never fails: what is not understood is `kOther`, or
/// `kTrouble` from a warning upwards.
Event EventFrom(const Record& record);

/// The fields that are set, for programs: "kind" is e.g. "task_state".
nlohmann::json ToJson(const Event& event);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_EVENTS_H_
