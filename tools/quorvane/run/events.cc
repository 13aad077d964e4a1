// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/events.h"

#include <array>
#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

namespace quorvane::tool {
namespace {

// Texts of the library inside a message.
constexpr LogText kInventoryUri{"inventory", " (URI "};
constexpr LogText kMemberStatus{"inventory", " (HTTP ", 2};
constexpr LogText kAttempt{"update", "s (attempt "};
constexpr LogText kPercent{"update", "  PercentComplete: "};
constexpr LogText kResult{"update", "  Result: ", 4};
constexpr LogText kSuccess{"update", "  Result: Success"};
constexpr LogText kResponseBody{"update", "\nResponse body:\n"};
constexpr LogText kResponseStatus{"http", " -> HTTP "};
constexpr LogText kFailedUrl{"http", " url=", 2};

// The positions that ReadUriAndIndex and ReadIndexAndCount parse.
constexpr std::array kPositions = {
    LogText{"inventory", " (URI {}/{})"}, LogText{"update", " ({}/{})"},
    LogText{"update", "s (attempt {}/{})"},
    LogText{"update", "[RF-TASK] Polling task (attempt {}/{})"}};

// The number at the start of `text`, if there is one that fits.
template <typename Number>
std::optional<Number> LeadingNumber(std::string_view text) {
  Number number = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end == text.data()) return std::nullopt;
  return number;
}

int IntOr(std::string_view text, int fallback) {
  return LeadingNumber<int>(text).value_or(fallback);
}

// The rest of `text` after `marker`; empty if `marker` does not occur.
std::string_view TextAfter(std::string_view text, std::string_view marker) {
  const std::size_t found = text.find(marker);
  return found == std::string_view::npos ? std::string_view()
                                         : text.substr(found + marker.size());
}

// "2/5)" gives index 2 and count 5.
void ReadIndexAndCount(std::string_view place, Event& event) {
  event.index = IntOr(place, -1);
  event.count = IntOr(TextAfter(place, "/"), -1);
}

// A reader takes the text after the prefix of its pattern.

void IgnoreRest(std::string_view /*rest*/, Event& /*event*/) {}

void ReadText(std::string_view rest, Event& event) { event.text = rest; }

void ReadCount(std::string_view rest, Event& event) {
  event.count = IntOr(rest, -1);
}

// "https://.../x (2/5)", "https://.../x (URI 1/2)"
void ReadUriAndIndex(std::string_view rest, Event& event) {
  const std::size_t bracket = rest.rfind(" (");
  event.uri = rest.substr(0, bracket);
  if (bracket == std::string_view::npos) return;
  std::string_view place = rest.substr(bracket);
  const bool names_uri = place.rfind(kInventoryUri.text, 0) == 0;
  place.remove_prefix(names_uri ? kInventoryUri.text.size() : 2);
  ReadIndexAndCount(place, event);
}

// "/redfish/v1/x (HTTP 404)"
void ReadUriAndStatus(std::string_view rest, Event& event) {
  const std::size_t status = rest.rfind(kMemberStatus.text);
  event.uri = rest.substr(0, status);
  if (status == std::string_view::npos) return;
  rest.remove_prefix(status + kMemberStatus.text.size());
  event.status = LeadingNumber<long>(rest).value_or(-1);
}

// In a log that is cut off, half of the next line may follow.
std::string_view FirstLine(std::string_view text) {
  return text.substr(0, text.find('\n'));
}

void ReadUri(std::string_view rest, Event& event) {
  event.uri = FirstLine(rest);
}

void ReadLine(std::string_view rest, Event& event) {
  event.text = FirstLine(rest);
}

void ReadStatus(std::string_view rest, Event& event) {
  event.status = LeadingNumber<long>(rest).value_or(-1);
}

// "10s (attempt 2/3)"
void ReadWait(std::string_view rest, Event& event) {
  event.seconds = IntOr(rest, -1);
  ReadIndexAndCount(TextAfter(rest, kAttempt.text), event);
}

void ReadSeconds(std::string_view rest, Event& event) {
  event.seconds = IntOr(rest, -1);
}

// "Running  PercentComplete: 45%", "Completed  Result: Success". The BMC
// chooses the state, so only the end of the line is the library's.
void ReadState(std::string_view rest, Event& event) {
  event.state = rest;
  if (const std::size_t result = rest.rfind(kResult.text);
      result != std::string_view::npos) {
    event.kind = rest.substr(result) == kSuccess.text
                     ? EventKind::kTaskSucceeded
                     : EventKind::kTaskFailed;
  } else if (const std::size_t percent = rest.rfind(kPercent.text);
             percent != std::string_view::npos) {
    event.state = rest.substr(0, percent);
    event.percent = IntOr(rest.substr(percent + kPercent.text.size()), -1);
  }
}

void ReadTaskBody(std::string_view rest, Event& event) {
  event.text = TextAfter(rest, kResponseBody.text);
}

void ReadElapsed(std::string_view rest, Event& event) {
  event.elapsed = LeadingNumber<double>(rest).value_or(-1);
}

void ReadPercent(std::string_view rest, Event& event) {
  event.percent = IntOr(rest, -1);
}

// "1234 of 5678 bytes"
void ReadBytes(std::string_view rest, Event& event) {
  constexpr std::string_view kOf = " of ";
  event.sent = LeadingNumber<std::int64_t>(rest).value_or(-1);
  event.total = LeadingNumber<std::int64_t>(TextAfter(rest, kOf)).value_or(-1);
}

// {"uri": ..., "name": ..., "version": ..., "targeted": true}; a member without
// a version has none.
void ReadMember(std::string_view rest, Event& event) {
  const auto member = nlohmann::json::parse(FirstLine(rest), nullptr,
                                            /*allow_exceptions=*/false);
  if (!member.is_object()) {
    event.kind = EventKind::kOther;
    return;
  }
  const auto text = [&member](const char* key) -> std::optional<std::string> {
    const auto found = member.find(key);
    if (found == member.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
  };
  event.uri = text("uri").value_or("");
  event.name = text("name").value_or("");
  event.version = text("version");
  const auto targeted = member.find("targeted");
  event.is_targeted = targeted != member.end() && *targeted == true;
  event.text.clear();
}

struct Pattern {
  std::string_view component, prefix;
  EventKind kind;
  Phase phase;
  void (*read)(std::string_view rest, Event& event);
  int literals = 1;  // see LogText
};

using enum EventKind;

// The messages of the tool and the library, by their start.
constexpr std::array kPatterns = {
    Pattern{"tool", "Run: ", kRunTitle, Phase::kNone, ReadLine},
    Pattern{"tool", "Continued: ", kContinued, Phase::kWatch, ReadLine},
    Pattern{"tool", "BMC: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "User: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Image: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Rules: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Forced: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Tool: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Started: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Ended: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Certificate check: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Elapsed: ", kElapsed, Phase::kNone, ReadElapsed},
    Pattern{"tool", "The request was not sent", kRequestNotSent, Phase::kNone,
            IgnoreRest},
    Pattern{"tool", "The request was sent", kBodySent, Phase::kNone,
            IgnoreRest},
    Pattern{kProgressComponent, "Sent ", kBytesSent, Phase::kNone, ReadBytes},
    Pattern{"tool", "No response: ", kRequestFailed, Phase::kNone, ReadLine},
    Pattern{"tool", "Login refused (HTTP ", kLoginRefused, Phase::kNone,
            ReadStatus},
    Pattern{"tool", "Target: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Task found: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Unlisted target: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Expect: ", kRunDetail, Phase::kNone, ReadLine},
    Pattern{"tool", "Firmware before: ", kFirmwareBefore, Phase::kNone,
            ReadMember},
    Pattern{"tool", "Firmware after: ", kFirmwareAfter, Phase::kNone,
            ReadMember},
    Pattern{"tool", "Not needed: ", kUpdateNotNeeded, Phase::kNone, ReadLine},
    Pattern{"tool", "Verification begins, at most ", kPhaseBegins,
            Phase::kVerification, ReadSeconds},
    Pattern{"tool", "Verification: ", kVerification, Phase::kVerification,
            ReadLine},
    Pattern{"tool", "Verification ends: ", kVerificationEnds,
            Phase::kVerification, ReadLine},
    Pattern{"tool", "No verification: ", kVerificationSkipped, Phase::kNone,
            ReadLine},
    Pattern{"tool", "No reboot: ", kRebootWithheld, Phase::kNone, ReadLine},
    Pattern{"tool", "Interrupted", kInterrupted, Phase::kNone, IgnoreRest},
    Pattern{"tool", "Worker process failed: ", kWorkerDied, Phase::kNone,
            ReadLine},
    Pattern{"tool", "Finished", kFinished, Phase::kNone, IgnoreRest},
    Pattern{"tool", "Outcome: ", kOutcome, Phase::kNone, ReadLine},
    Pattern{"tool", "Cause: ", kCause, Phase::kNone, ReadLine},
    Pattern{"tool", "Next: ", kNextStep, Phase::kNone, ReadLine},
    Pattern{"logger", "=== Logger shutdown", kRunEnds, Phase::kNone,
            IgnoreRest},
    Pattern{"inventory", "========== INVENTORY FETCH START", kPhaseBegins,
            Phase::kInventory, IgnoreRest},
    Pattern{"inventory", "GET collection: ", kAttemptBegins, Phase::kInventory,
            ReadUriAndIndex},
    Pattern{"inventory", "Collection HTTP status: ", kStatus, Phase::kInventory,
            ReadStatus},
    Pattern{"inventory", "Authentication failed (HTTP ", kLoginRefused,
            Phase::kInventory, ReadStatus},
    Pattern{"inventory", "Access denied (HTTP ", kLoginRefused,
            Phase::kInventory, ReadStatus},
    Pattern{"inventory", "Retrying in ", kWaitBegins, Phase::kInventory,
            ReadWait},
    Pattern{"inventory", "Total items fetched: ", kInventoryRead,
            Phase::kInventory, ReadCount},
    Pattern{"inventory", "Members found: ", kMembersFound, Phase::kInventory,
            ReadCount},
    Pattern{"inventory", "Members[] is empty or missing", kNoMembers,
            Phase::kInventory, IgnoreRest},
    Pattern{"inventory", "GET member failed: ", kMemberUnread,
            Phase::kInventory, ReadUriAndStatus},
    Pattern{"inventory", "Failed to parse member JSON for ", kMemberUnread,
            Phase::kInventory, ReadUri},
    Pattern{"chassis", "Chassis collection returned HTTP ", kProblem,
            Phase::kNone, ReadStatus},
    Pattern{"chassis", "Chassis member returned HTTP ", kProblem, Phase::kNone,
            ReadStatus},
    Pattern{"update", "========== FIRMWARE UPDATE START", kUpdateBegins,
            Phase::kNone, IgnoreRest},
    Pattern{"update", "========== FIRMWARE UPDATE SUMMARY", kRunEnds,
            Phase::kNone, IgnoreRest},
    Pattern{"update", "SimpleUpdate (online share) -- ", kPhaseBegins,
            Phase::kSimpleUpdate, ReadCount},
    Pattern{"update", "Multipart upload -- ", kPhaseBegins, Phase::kUpload,
            ReadCount},
    Pattern{"update", "Binary upload fallback -- ", kPhaseBegins,
            Phase::kBinaryUpload, ReadCount},
    Pattern{"update", "Activation -- ", kPhaseBegins, Phase::kActivation,
            ReadCount},
    Pattern{"update", "Reboot -- ", kPhaseBegins, Phase::kReboot, ReadCount},
    Pattern{"update", "Downloading from: ", kPhaseBegins, Phase::kDownload,
            ReadUri},
    Pattern{"update", "Trying SimpleUpdate URI: ", kAttemptBegins,
            Phase::kSimpleUpdate, ReadUriAndIndex},
    Pattern{"update", "Trying upload URI: ", kAttemptBegins, Phase::kUpload,
            ReadUriAndIndex},
    Pattern{"update", "Trying binary upload URI: ", kAttemptBegins,
            Phase::kBinaryUpload, ReadUriAndIndex},
    Pattern{"update", "Trying activation URI: ", kAttemptBegins,
            Phase::kActivation, ReadUriAndIndex},
    Pattern{"update", "Trying reboot URI: ", kAttemptBegins, Phase::kReboot,
            ReadUriAndIndex},
    Pattern{"update", "SimpleUpdate HTTP status: ", kStatus,
            Phase::kSimpleUpdate, ReadStatus},
    Pattern{"update", "Upload HTTP status: ", kStatus, Phase::kUpload,
            ReadStatus},
    Pattern{"update", "Binary upload HTTP status: ", kStatus,
            Phase::kBinaryUpload, ReadStatus},
    Pattern{"update", "Activation HTTP status: ", kStatus, Phase::kActivation,
            ReadStatus},
    Pattern{"update", "Reboot HTTP status: ", kStatus, Phase::kReboot,
            ReadStatus},
    Pattern{"update", "SimpleUpdate response body: ", kBody,
            Phase::kSimpleUpdate, ReadText},
    Pattern{"update", "Upload response body: ", kBody, Phase::kUpload,
            ReadText},
    Pattern{"update", "Binary upload response body: ", kBody,
            Phase::kBinaryUpload, ReadText},
    Pattern{"update", "Retrying in ", kWaitBegins, Phase::kNone, ReadWait},
    Pattern{"update", "[RF-UPDATE] Task created: ", kTaskBegins, Phase::kTask,
            ReadUri},
    Pattern{"update", "[RF-UPDATE] Polling interval: ", kPollInterval,
            Phase::kTask, ReadSeconds},
    Pattern{"update", "[RF-TASK] Polling task (attempt ", kPollBegins,
            Phase::kTask, ReadIndexAndCount},
    Pattern{"update", "[RF-TASK] State: ", kTaskState, Phase::kTask, ReadState,
            2},
    Pattern{"update", "[RF-TASK] Task ID: ", kTaskBody, Phase::kTask,
            ReadTaskBody},
    Pattern{"update", "[RF-TASK] Task stable in '", kTaskStaged, Phase::kTask,
            IgnoreRest},
    Pattern{"update", "Task poll returned HTTP ", kPollFailed, Phase::kTask,
            ReadStatus},
    Pattern{"update", "Could not parse TaskState", kPollFailed, Phase::kTask,
            IgnoreRest},
    Pattern{"update", "Task returned 404 after reaching ", kTaskNotFoundLate,
            Phase::kTask, ReadPercent},
    Pattern{"update", "Update Method Not Supported (HTTP 404)",
            kTaskNotFoundEarly, Phase::kTask, IgnoreRest},
    Pattern{"update", "No task URI to poll", kNoTask, Phase::kNone, IgnoreRest},
    Pattern{"update", "Local file upload failed.", kUploadsRejected,
            Phase::kNone, IgnoreRest},
    Pattern{"update", "Reboot not required by config", kRebootSkipped,
            Phase::kNone, IgnoreRest},
};

// "GET https://...", "MULTIPART POST https://... file=...", and the same with
// " -> HTTP 202" for the response.
void ReadRequest(std::string_view message, Event& event) {
  const std::size_t scheme = message.find(" http");
  if (scheme == std::string_view::npos) return;
  event.verb = message.substr(0, scheme);
  std::string_view rest = message.substr(scheme + 1);
  const std::string_view status = TextAfter(rest, kResponseStatus.text);
  event.uri = rest.substr(0, rest.find(' '));
  if (status.empty()) {
    event.kind = kRequestSent;
  } else {
    event.kind = kResponseReceived;
    event.status = LeadingNumber<long>(status).value_or(-1);
  }
}

void ReadHttp(std::string_view message, Event& event) {
  if (event.level == LogLevel::DEBUG) {
    ReadRequest(message, event);
  } else {
    event.kind = kRequestFailed;
    const std::size_t url = message.rfind(kFailedUrl.text);
    event.text = message.substr(0, url);
    if (url != std::string_view::npos) {
      event.uri = message.substr(url + kFailedUrl.text.size());
    }
  }
}

// As in the JSON report. A table, which the compiler checks for missing kinds.
// NOLINTNEXTLINE(readability-function-size)
const char* NameOf(EventKind kind) {
  switch (kind) {
    case kOther:
      return "other";
    case kRunTitle:
      return "run_title";
    case kContinued:
      return "continued";
    case kRunDetail:
      return "run_detail";
    case kElapsed:
      return "elapsed";
    case kUpdateBegins:
      return "update_begins";
    case kPhaseBegins:
      return "phase_begins";
    case kAttemptBegins:
      return "attempt_begins";
    case kRequestSent:
      return "request_sent";
    case kResponseReceived:
      return "response_received";
    case kRequestNotSent:
      return "request_not_sent";
    case kBytesSent:
      return "bytes_sent";
    case kBodySent:
      return "body_sent";
    case kRequestFailed:
      return "request_failed";
    case kStatus:
      return "status";
    case kBody:
      return "body";
    case kWaitBegins:
      return "wait_begins";
    case kTaskBegins:
      return "task_begins";
    case kPollInterval:
      return "poll_interval";
    case kPollBegins:
      return "poll_begins";
    case kPollFailed:
      return "poll_failed";
    case kTaskState:
      return "task_state";
    case kTaskBody:
      return "task_body";
    case kTaskSucceeded:
      return "task_succeeded";
    case kTaskFailed:
      return "task_failed";
    case kTaskStaged:
      return "task_staged";
    case kTaskNotFoundLate:
      return "task_not_found_late";
    case kTaskNotFoundEarly:
      return "task_not_found_early";
    case kNoTask:
      return "no_task";
    case kLoginRefused:
      return "login_refused";
    case kInventoryRead:
      return "inventory_read";
    case kMembersFound:
      return "members_found";
    case kNoMembers:
      return "no_members";
    case kMemberUnread:
      return "member_unread";
    case kUploadsRejected:
      return "uploads_rejected";
    case kRebootSkipped:
      return "reboot_skipped";
    case kRebootWithheld:
      return "reboot_withheld";
    case kFirmwareBefore:
      return "firmware_before";
    case kFirmwareAfter:
      return "firmware_after";
    case kUpdateNotNeeded:
      return "update_not_needed";
    case kVerification:
      return "verification";
    case kVerificationEnds:
      return "verification_ends";
    case kVerificationSkipped:
      return "verification_skipped";
    case kRunEnds:
      return "run_ends";
    case kFinished:
      return "finished";
    case kInterrupted:
      return "interrupted";
    case kWorkerDied:
      return "worker_died";
    case kOutcome:
      return "outcome";
    case kCause:
      return "cause";
    case kNextStep:
      return "next_step";
    case kProblem:
      return "problem";
  }
  return "";
}

}  // namespace

const char* NameOf(Phase phase) {
  switch (phase) {
    case Phase::kNone:
      return "Preparation";
    case Phase::kInventory:
      return "Inventory";
    case Phase::kSimpleUpdate:
      return "SimpleUpdate";
    case Phase::kDownload:
      return "Download";
    case Phase::kUpload:
      return "Upload";
    case Phase::kBinaryUpload:
      return "Binary upload";
    case Phase::kTask:
      return "Task";
    case Phase::kActivation:
      return "Activation";
    case Phase::kReboot:
      return "Reboot";
    case Phase::kVerification:
      return "Verification";
    case Phase::kWatch:
      return "Watch";
  }
  return "";
}

bool SendsImage(Phase phase) {
  return phase == Phase::kUpload || phase == Phase::kBinaryUpload ||
         phase == Phase::kSimpleUpdate;
}

Event EventFrom(const Record& record) {
  Event event{.kind = record.level >= LogLevel::WARNING ? kProblem : kOther,
              .time = record.time,
              .stamp = record.stamp,
              .level = record.level,
              .text = record.message};
  const std::string_view message = record.message;
  if (record.component == "http") {
    ReadHttp(message, event);
    return event;
  }
  for (const Pattern& pattern : kPatterns) {
    if (record.component != pattern.component ||
        message.rfind(pattern.prefix, 0) != 0) {
      continue;
    }
    event.kind = pattern.kind;
    event.phase = pattern.phase;
    pattern.read(message.substr(pattern.prefix.size()), event);
    if (event.kind == kRunDetail) {
      event.name = pattern.prefix.substr(0, pattern.prefix.find(':'));
    }
    break;
  }
  return event;
}

// A table of all kinds, which the compiler checks for missing ones.
bool IsEssential(EventKind kind) {
  switch (kind) {
    case kUpdateBegins:
    case kPhaseBegins:
    case kAttemptBegins:
    case kStatus:
    case kWaitBegins:
    case kTaskBegins:
    case kPollInterval:
    case kPollBegins:
    case kPollFailed:
    case kTaskState:
    case kTaskSucceeded:
    case kTaskFailed:
    case kTaskStaged:
    case kTaskNotFoundLate:
    case kTaskNotFoundEarly:
    case kNoTask:
    case kUploadsRejected:
    case kRebootSkipped:
      return true;
    case kOther:
    case kRunTitle:
    case kContinued:
    case kRunDetail:
    case kElapsed:
    case kRequestSent:
    case kResponseReceived:
    case kRequestNotSent:
    case kBytesSent:
    case kBodySent:
    case kRequestFailed:
    case kBody:
    case kTaskBody:
    case kLoginRefused:
    case kInventoryRead:
    case kMembersFound:
    case kNoMembers:
    case kMemberUnread:
    case kRebootWithheld:
    case kFirmwareBefore:
    case kFirmwareAfter:
    case kUpdateNotNeeded:
    case kVerification:
    case kVerificationEnds:
    case kVerificationSkipped:
    case kRunEnds:
    case kFinished:
    case kInterrupted:
    case kWorkerDied:
    case kOutcome:
    case kCause:
    case kNextStep:
    case kProblem:
      break;
  }
  return false;
}

std::vector<LogText> LogTexts() {
  std::vector<LogText> texts = {
      kInventoryUri, kMemberStatus,   kAttempt,   kPercent,  kResult, kSuccess,
      kResponseBody, kResponseStatus, kFailedUrl, kRetrying, kNextUri};
  texts.insert(texts.end(), kPositions.begin(), kPositions.end());
  for (const Pattern& pattern : kPatterns) {
    if (pattern.component != kToolComponent &&
        pattern.component != kProgressComponent) {
      texts.push_back({pattern.component, pattern.prefix, pattern.literals});
    }
  }
  return texts;
}

nlohmann::json ToJson(const Event& event) {
  nlohmann::json json = {{"time", event.stamp}, {"kind", NameOf(event.kind)}};
  const auto add_text = [&json](const char* name, const std::string& text) {
    if (!text.empty()) json[name] = text;
  };
  const auto add_number = [&json](const char* name, std::int64_t number) {
    if (number >= 0) json[name] = number;
  };
  if (event.phase != Phase::kNone) json["phase"] = NameOf(event.phase);
  add_text("name", event.name);
  if (event.version) json["version"] = *event.version;
  if (event.is_targeted) json["targeted"] = true;
  add_text("verb", event.verb);
  add_text("uri", event.uri);
  add_text("state", event.state);
  add_number("status", event.status);
  add_number("index", event.index);
  add_number("count", event.count);
  add_number("seconds", event.seconds);
  add_number("percent", event.percent);
  add_number("sent", event.sent);
  add_number("total", event.total);
  if (event.elapsed >= 0) json["elapsed"] = event.elapsed;
  add_text("text", event.text);
  return json;
}

}  // namespace quorvane::tool
