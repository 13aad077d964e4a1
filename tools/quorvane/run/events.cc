// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/events.h"

#include <array>
#include <charconv>
#include <optional>
#include <string_view>

namespace quorvane::tool {
namespace {

// A number at the front of `text`; what does not fit is none.
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

// The rest of `text` behind `words`; empty when they do not occur.
std::string_view Behind(std::string_view text, std::string_view words) {
  const std::size_t found = text.find(words);
  return found == std::string_view::npos ? std::string_view()
                                         : text.substr(found + words.size());
}

// "2/5)" gives index 2 and count 5.
void ReadPlace(std::string_view place, Event& event) {
  event.index = IntOr(place, -1);
  event.count = IntOr(Behind(place, "/"), -1);
}

// The readers take what stands behind a pattern's prefix.

void ReadNothing(std::string_view /*rest*/, Event& /*event*/) {}

void ReadText(std::string_view rest, Event& event) { event.text = rest; }

void ReadCount(std::string_view rest, Event& event) {
  event.count = IntOr(rest, -1);
}

// "https://.../x (2/5)", "https://.../x (URI 1/2)"
void ReadUriAndPlace(std::string_view rest, Event& event) {
  const std::size_t bracket = rest.rfind(" (");
  event.uri = rest.substr(0, bracket);
  if (bracket == std::string_view::npos) return;
  std::string_view place = rest.substr(bracket + 2);
  if (place.rfind("URI ", 0) == 0) place.remove_prefix(4);
  ReadPlace(place, event);
}

// In a log that is cut off, half the next line may hang on it.
void ReadUri(std::string_view rest, Event& event) {
  event.uri = rest.substr(0, rest.find('\n'));
}

void ReadStatus(std::string_view rest, Event& event) {
  event.status = LeadingNumber<long>(rest).value_or(-1);
}

// "10s (attempt 2/3)"
void ReadWait(std::string_view rest, Event& event) {
  event.seconds = IntOr(rest, -1);
  ReadPlace(Behind(rest, "(attempt "), event);
}

void ReadSeconds(std::string_view rest, Event& event) {
  event.seconds = IntOr(rest, -1);
}

// "Running  PercentComplete: 45%", "Completed  Result: Success". The state is
// the BMC's text, so only what ends the line is the library's.
void ReadState(std::string_view rest, Event& event) {
  constexpr std::string_view kPercent = "  PercentComplete: ";
  constexpr std::string_view kResult = "  Result: ";
  event.state = rest;
  if (const std::size_t result = rest.rfind(kResult);
      result != std::string_view::npos) {
    event.kind = rest.substr(result + kResult.size()) == "Success"
                     ? EventKind::kTaskEndsWell
                     : EventKind::kTaskEndsBadly;
  } else if (const std::size_t percent = rest.rfind(kPercent);
             percent != std::string_view::npos) {
    event.state = rest.substr(0, percent);
    event.percent = IntOr(rest.substr(percent + kPercent.size()), -1);
  }
}

void ReadTaskBody(std::string_view rest, Event& event) {
  event.text = Behind(rest, "\nResponse body:\n");
}

void ReadGone(std::string_view rest, Event& event) {
  event.percent = IntOr(rest, -1);
}

struct Pattern {
  std::string_view component, prefix;
  EventKind kind;
  Phase phase;
  void (*read)(std::string_view rest, Event& event);
};

using enum EventKind;

// The library's words. A line that changes there changes here.
constexpr std::array kPatterns = {
    Pattern{"tool", "Run: ", kRunNamed, Phase::kNone, ReadText},
    Pattern{"tool", "Interrupted", kInterrupted, Phase::kNone, ReadNothing},
    Pattern{"tool", "Outcome: ", kRunEnds, Phase::kNone, ReadText},
    Pattern{"logger", "=== Logger shutdown", kRunEnds, Phase::kNone,
            ReadNothing},
    Pattern{"inventory", "========== INVENTORY FETCH START", kPhaseBegins,
            Phase::kInventory, ReadNothing},
    Pattern{"inventory", "GET collection: ", kUriTried, Phase::kInventory,
            ReadUriAndPlace},
    Pattern{"inventory", "Collection HTTP status: ", kStatus, Phase::kInventory,
            ReadStatus},
    Pattern{"inventory", "Authentication failed (HTTP ", kLoginRefused,
            Phase::kInventory, ReadStatus},
    Pattern{"inventory", "Access denied (HTTP ", kLoginRefused,
            Phase::kInventory, ReadStatus},
    Pattern{"inventory", "Retrying in ", kWaitBegins, Phase::kInventory,
            ReadWait},
    Pattern{"inventory", "Total items fetched: ", kItemsRead, Phase::kInventory,
            ReadCount},
    Pattern{"update", "========== FIRMWARE UPDATE START", kUpdateBegins,
            Phase::kNone, ReadNothing},
    Pattern{"update", "========== FIRMWARE UPDATE SUMMARY", kRunEnds,
            Phase::kNone, ReadNothing},
    Pattern{"update", "SimpleUpdate (online share) -- ", kPhaseBegins,
            Phase::kSimpleUpdate, ReadCount},
    Pattern{"update", "Multipart upload -- ", kPhaseBegins, Phase::kUpload,
            ReadCount},
    Pattern{"update", "Binary upload fallback -- ", kPhaseBegins,
            Phase::kBinaryUpload, ReadCount},
    Pattern{"update", "Activation -- ", kPhaseBegins, Phase::kActivation,
            ReadCount},
    Pattern{"update", "Reboot -- ", kPhaseBegins, Phase::kRestart, ReadCount},
    Pattern{"update", "Downloading from: ", kPhaseBegins, Phase::kDownload,
            ReadUri},
    Pattern{"update", "Trying SimpleUpdate URI: ", kUriTried,
            Phase::kSimpleUpdate, ReadUriAndPlace},
    Pattern{"update", "Trying upload URI: ", kUriTried, Phase::kUpload,
            ReadUriAndPlace},
    Pattern{"update", "Trying binary upload URI: ", kUriTried,
            Phase::kBinaryUpload, ReadUriAndPlace},
    Pattern{"update", "Trying activation URI: ", kUriTried, Phase::kActivation,
            ReadUriAndPlace},
    Pattern{"update", "Trying reboot URI: ", kUriTried, Phase::kRestart,
            ReadUriAndPlace},
    Pattern{"update", "SimpleUpdate HTTP status: ", kStatus,
            Phase::kSimpleUpdate, ReadStatus},
    Pattern{"update", "Upload HTTP status: ", kStatus, Phase::kUpload,
            ReadStatus},
    Pattern{"update", "Binary upload HTTP status: ", kStatus,
            Phase::kBinaryUpload, ReadStatus},
    Pattern{"update", "Activation HTTP status: ", kStatus, Phase::kActivation,
            ReadStatus},
    Pattern{"update", "Reboot HTTP status: ", kStatus, Phase::kRestart,
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
            Phase::kTask, ReadPlace},
    Pattern{"update", "[RF-TASK] State: ", kTaskState, Phase::kTask, ReadState},
    Pattern{"update", "[RF-TASK] Task ID: ", kTaskBody, Phase::kTask,
            ReadTaskBody},
    Pattern{"update", "[RF-TASK] Task stable in '", kTaskStaged, Phase::kTask,
            ReadNothing},
    Pattern{"update", "Task poll returned HTTP ", kPollFailed, Phase::kTask,
            ReadStatus},
    Pattern{"update", "Could not parse TaskState", kPollFailed, Phase::kTask,
            ReadNothing},
    Pattern{"update", "Task returned 404 after reaching ", kTaskGone,
            Phase::kTask, ReadGone},
    Pattern{"update", "Update Method Not Supported (HTTP 404)", kTaskMissing,
            Phase::kTask, ReadNothing},
    Pattern{"update", "No task URI to poll", kNoTask, Phase::kNone,
            ReadNothing},
    Pattern{"update", "Local file upload failed.", kUploadsRefused,
            Phase::kNone, ReadNothing},
    Pattern{"update", "Reboot not required by config", kRestartLeftOut,
            Phase::kNone, ReadNothing},
};

// "GET https://...", "MULTIPART POST https://... file=...", and the same with
// " -> HTTP 202" when the answer is there.
void ReadRequest(std::string_view message, Event& event) {
  const std::size_t scheme = message.find(" http");
  if (scheme == std::string_view::npos) return;
  event.verb = message.substr(0, scheme);
  std::string_view rest = message.substr(scheme + 1);
  const std::string_view status = Behind(rest, " -> HTTP ");
  event.uri = rest.substr(0, rest.find(' '));
  if (status.empty()) {
    event.kind = kRequestSent;
  } else {
    event.kind = kRequestAnswered;
    event.status = LeadingNumber<long>(status).value_or(-1);
  }
}

void ReadHttp(std::string_view message, Event& event) {
  if (event.level == LogLevel::DEBUG) {
    ReadRequest(message, event);
  } else {
    event.kind = kRequestFailed;
    const std::size_t url = message.rfind(" url=");
    event.text = message.substr(0, url);
    if (url != std::string_view::npos) event.uri = message.substr(url + 5);
  }
}

constexpr std::array<const char*, 30> kKindNames = {"other",
                                                    "run_named",
                                                    "update_begins",
                                                    "phase_begins",
                                                    "uri_tried",
                                                    "request_sent",
                                                    "request_answered",
                                                    "request_failed",
                                                    "status",
                                                    "body",
                                                    "wait_begins",
                                                    "task_begins",
                                                    "poll_interval",
                                                    "poll_begins",
                                                    "poll_failed",
                                                    "task_state",
                                                    "task_body",
                                                    "task_ends_well",
                                                    "task_ends_badly",
                                                    "task_staged",
                                                    "task_gone",
                                                    "task_missing",
                                                    "no_task",
                                                    "login_refused",
                                                    "items_read",
                                                    "uploads_refused",
                                                    "restart_left_out",
                                                    "run_ends",
                                                    "interrupted",
                                                    "trouble"};
static_assert(kKindNames.size() == static_cast<std::size_t>(kTrouble) + 1);

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
    case Phase::kRestart:
      return "Restart";
  }
  return "";
}

Event EventFrom(const Record& record) {
  Event event{.kind = record.level >= LogLevel::WARNING ? kTrouble : kOther,
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
    break;
  }
  return event;
}

nlohmann::json ToJson(const Event& event) {
  nlohmann::json json = {
      {"time", event.stamp},
      {"kind", kKindNames.at(static_cast<std::size_t>(event.kind))}};
  const auto add_text = [&json](const char* name, const std::string& text) {
    if (!text.empty()) json[name] = text;
  };
  const auto add_number = [&json](const char* name, long number) {
    if (number >= 0) json[name] = number;
  };
  if (event.phase != Phase::kNone) json["phase"] = NameOf(event.phase);
  add_text("verb", event.verb);
  add_text("uri", event.uri);
  add_text("state", event.state);
  add_number("status", event.status);
  add_number("index", event.index);
  add_number("count", event.count);
  add_number("seconds", event.seconds);
  add_number("percent", event.percent);
  add_text("text", event.text);
  return json;
}

}  // namespace quorvane::tool
