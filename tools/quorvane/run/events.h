// SPDX-License-Identifier: Apache-2.0
// Turns log records into events: the only reader of the library's log texts.
// The live display, the report and the verdict all use it.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_EVENTS_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_EVENTS_H_

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quorvane/logging.h"
#include "tools/quorvane/run/records.h"

namespace quorvane::tool {

enum class EventKind {
  kOther,              ///< Nothing that a user needs to see.
  kRunTitle,           ///< The tool's first record: `text` names the run.
  kContinued,          ///< `quorvane watch` continues the run; `text` is when.
  kRunDetail,          ///< `text` is the value of `name`, e.g. the BMC.
  kElapsed,            ///< `elapsed` seconds after the start, by a clock that
                       ///< cannot be set.
  kUpdateBegins,       ///< An update starts.
  kPhaseBegins,        ///< `phase`; `count` URIs to try.
  kAttemptBegins,      ///< Request to `uri`, number `index` of `count`.
  kRequestSent,        ///< `verb` and `uri` (debug level only).
  kResponseReceived,   ///< `status` (debug level only).
  kRequestNotSent,     ///< The request that fails next reached no peer.
  kBytesSent,          ///< `sent` of `total` bytes of the request were sent.
  kBodySent,           ///< The last byte of the request was sent.
  kRequestFailed,      ///< No response; `text` is the reason.
  kStatus,             ///< The request of the phase got `status`.
  kBody,               ///< `text` is the body of that response.
  kWaitBegins,         ///< `seconds`, then retry `index` of `count`.
  kTaskBegins,         ///< The library polls the task `uri`.
  kPollInterval,       ///< `seconds` before each poll.
  kPollBegins,         ///< The wait before poll `index` of `count`.
  kPollFailed,         ///< The poll got no state; `status`, if it got one.
  kTaskState,          ///< `state`, `percent` (-1: not reported).
  kTaskBody,           ///< `text` is the task resource.
  kTaskSucceeded,      ///< `state`
  kTaskFailed,         ///< `state`
  kTaskStaged,         ///< The task waits for a reboot.
  kTaskNotFoundLate,   ///< 404 from 50 % on: taken for a reboot of the BMC.
  kTaskNotFoundEarly,  ///< 404 below 50 %.
  kNoTask,             ///< The BMC named no task.
  kLoginRefused,       ///< `status` 401 or 403.
  kInventoryRead,      ///< `count` items.
  kMembersFound,       ///< The collection lists `count` members.
  kNoMembers,          ///< The response lists none; it may be no collection.
  kMemberUnread,       ///< `uri` is left out; `status`, unless it is not JSON.
  kUploadsRejected,    ///< The BMC accepted no upload.
  kRebootSkipped,      ///< The rules require no reboot.
  kRebootWithheld,     ///< The tool requests no reboot; `text` is the reason.
  kFirmwareBefore,     ///< `uri`, `name` and `version` before the update.
  kFirmwareAfter,      ///< The same after it.
  kUpdateNotNeeded,    ///< Every expected version is installed already.
  kVerification,       ///< What the verification sees; `text`.
  kVerificationEnds,   ///< `text` is the reason.
  kVerificationSkipped,  ///< `text` is the reason.
  kRunEnds,              ///< The library ends its log of the call.
  kFinished,             ///< The tool makes no more calls; its verdict follows.
  kInterrupted,          ///< The tool was interrupted.
  kWorkerDied,           ///< The library process failed; `text` is the reason.
  kOutcome,              ///< The tool's verdict: "done. ..."
  kCause,                ///< What the verdict rests on.
  kNextStep,             ///< What the operator can do.
  kProblem,              ///< Any other warning or error.
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
  kReboot,
  kVerification,  ///< The tool reads the versions after the update.
  kWatch,         ///< `quorvane watch` continues the run.
};

/// The name for users, e.g. "Upload".
const char* NameOf(Phase phase);

/// Whether the requests of the phase transfer the image: an upload, or the
/// request that the BMC downloads it.
bool SendsImage(Phase phase);

/// One record, understood. The kind decides which fields are set; the others
/// keep their initial values.
struct Event {
  EventKind kind = EventKind::kOther;
  Phase phase = Phase::kNone;  ///< The phase that it starts or belongs to.
  double time = 0;             ///< As `Record::time`.
  std::string stamp = {};
  LogLevel level = LogLevel::INFO;
  std::string text = {};  ///< The message, or the part that the kind names.
  std::string name = {};
  std::optional<std::string> version = {};
  bool is_targeted = false;  ///< Of a member: by --target.
  std::string verb = {};
  std::string uri = {};
  std::string state = {};
  long status = -1;
  int index = -1;
  int count = -1;
  int seconds = -1;
  int percent = -1;
  double elapsed = -1;
  std::int64_t sent = -1;   ///< Bytes.
  std::int64_t total = -1;  ///< Bytes.
};

/// Never fails: an unknown message is `kOther`, or `kProblem` from a warning
/// up.
Event EventFrom(const Record& record);

/// The fields that are set; "kind" is e.g. "task_state".
nlohmann::json ToJson(const Event& event);

/// Whether `quorvane watch` needs the event: what was requested, how the BMC
/// responded, and how far its tasks came. A log contains them at every level.
bool IsEssential(EventKind kind);

/// A text of the library that `EventFrom` depends on.
struct LogText {
  std::string_view component;  ///< Component of its record.
  std::string_view text;       ///< Start or part of a message; {}: a value.
  int literals = 1;            ///< How many literals of its sources start so.
};

/// Begins the end of a warning that announces a retry. The library writes it
/// after the last attempt too.
inline constexpr LogText kRetrying{"update", ", retrying", 5};
/// Ends the warning about a reboot URI, which does not state the reason.
inline constexpr LogText kNextUri{"update", ", trying next URI"};

/// All of them, so that a test can compare them with the library's sources.
std::vector<LogText> LogTexts();

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_EVENTS_H_
