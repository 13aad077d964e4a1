// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "config/derived.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "support/wait.h"
#include "update/helpers.h"
#include "update/phases.h"

namespace quorvane {
namespace {

constexpr long kTimeoutMs = 30'000;

// How monitoring ended; nothing while it goes on.
using Verdict = std::optional<bool>;

class TaskMonitor {
 public:
  TaskMonitor(const Config& config, UpdateResponse& result)
      : config_(config), result_(result) {}

  Verdict Handle(const Response& answer) {
    switch (answer.status_code) {
      case 200:
      case 202:
        return HandleDocument(answer.body);
      case 404:
        return TaskIsGone();
      default:
        LogWarning(kUpdate, "Task poll returned HTTP " +
                                std::to_string(answer.status_code));
        return std::nullopt;
    }
  }

 private:
  Verdict HandleDocument(const std::string& body) {
    const JsonPtr task = ParseJson(body);
    const std::string state =
        StringMember(task.get(), "TaskState").value_or("");
    if (state.empty()) {
      LogWarning(kUpdate, "Could not parse TaskState from response");
      return std::nullopt;
    }
    if (result_.task_id.empty()) {
      result_.task_id = ExtractTaskId(result_.task_uri, body);
    }
    std::string told = "[RF-TASK] State: " + state;
    const int percent = IntMember(task.get(), "PercentComplete").value_or(-1);
    if (percent >= 0) {
      result_.percent_complete = percent;
      told += "  PercentComplete: " + std::to_string(percent) + "%";
    }
    LogInfo(kUpdate, told);
    result_.task_state = state;
    LogDocument(task.get(), body);
    return Decide(state);
  }

  void LogDocument(const cJSON* task, const std::string& body) const {
    // Some times the length is plenty for any document but a hostile one.
    constexpr std::size_t kMostKept = 1U << 26;
    const auto text =
        PrintJsonWithin(task, std::min(4 * body.size() + 4096, kMostKept));
    const std::string told = "[RF-TASK] Task ID: " + result_.task_id;
    if (text) {
      LogInfo(kUpdate, told + "\nResponse body:\n" + RedactAnswer(*text));
    } else {
      LogDebug(kUpdate, "cJSON_Print failed, using raw body");
      LogInfo(kUpdate, told + "  Response body: " + RedactAnswer(body));
    }
  }

  // The decision table.
  Verdict Decide(const std::string& state) {
    switch (RuleFor(config_.task_states, state)
                .value_or(TaskAction::continue_polling)) {
      case TaskAction::proceed_to_activation:
        return End(true, "Success", "Task completed successfully");
      case TaskAction::retry_upload:
        return End(false, "Exception -- upload retry needed",
                   "Task exception -- upload retry needed");
      case TaskAction::restart_upload:
        return End(false, "Cancelled -- upload restart needed",
                   "Task cancelled -- upload restart needed");
      case TaskAction::retry_last_chunk:
        return End(false, "Interrupted -- last chunk retry needed",
                   "Task interrupted -- last chunk retry needed");
      case TaskAction::continue_polling:
        return IsStaged(state);
    }
    return std::nullopt;
  }

  Verdict End(bool good, const char* told, const char* message) {
    LogInfo(kUpdate,
            "[RF-TASK] State: " + result_.task_state + "  Result: " + told);
    result_.message = message;
    return good;
  }

  // Some BMCs leave a task waiting until the system restarts: it will not move
  // before that, so its third such poll in a row ends the watch.
  Verdict IsStaged(const std::string& state) {
    if (state != "Scheduled" && state != "Starting") {
      staged_polls_ = 0;
      return std::nullopt;
    }
    if (++staged_polls_ <= 2) return std::nullopt;
    LogInfo(kUpdate, "[RF-TASK] Task stable in '" + state +
                         "' state -- firmware staged, waiting for reboot");
    result_.message =
        "Firmware staged successfully (scheduled, waiting for reboot)";
    return true;
  }

  // A BMC that restarts forgets its tasks; past half way that is taken as the
  // firmware being applied.
  Verdict TaskIsGone() {
    if (result_.percent_complete < 50) {
      result_.message = "Update Method Not Supported (HTTP 404)";
      LogError(kUpdate, result_.message);
      return false;
    }
    LogInfo(kUpdate, "Task returned 404 after reaching " +
                         std::to_string(result_.percent_complete) +
                         "% -- Machine likely rebooted to apply firmware. "
                         "Treating as success.");
    result_.message = "Task completed (system rebooted during activation)";
    result_.task_state = "Completed";
    result_.percent_complete = 100;
    return true;
  }

  const Config& config_;
  UpdateResponse& result_;
  int staged_polls_ = 0;
};

}  // namespace

bool MonitorTask(const HttpClient& client, const Config& config,
                 UpdateResponse& result) {
  if (result.task_uri.empty()) {
    LogInfo(kUpdate, "No task URI to poll, skipping task monitoring");
    return true;
  }
  const std::string url = UrlOf(result.task_uri, config);
  const int interval = std::max(config.polling_interval, 1);
  const long long max_attempts = config.max_polling_time_seconds / interval;
  const std::string interval_told = std::to_string(interval) + "s";
  LogInfo(kUpdate, "[RF-UPDATE] Task created: " + RedactUri(result.task_uri));
  LogInfo(kUpdate, "[RF-UPDATE] Polling interval: " + interval_told);
  LogInfo(kUpdate, "Polling task: " + UriForLog(url) +
                       " (interval=" + interval_told + ")");

  TaskMonitor monitor(config, result);
  for (long long attempt = 1; attempt <= max_attempts; ++attempt) {
    LogInfo(kUpdate, "[RF-TASK] Polling task (attempt " +
                         std::to_string(attempt) + "/" +
                         std::to_string(max_attempts) + ")");
    SleepSeconds(interval);
    const Response answer = AnswerOrNone([&] {
      return client.get(url, {}, kTimeoutMs, config.username, config.password,
                        config.auth_type);
    });
    if (const Verdict verdict = monitor.Handle(answer)) return *verdict;
  }
  result.message = "Task polling timed out";
  return false;
}

bool FollowTask(const HttpClient& client, const Config& config,
                const Response& answer, const char* told,
                UpdateResponse& result) {
  std::string link = ExtractTaskUri(answer.body, config);
  if (!link.empty()) {
    LogInfo(kUpdate, told + RedactUri(link));
    result.task_uri = std::move(link);
  }
  return MonitorTask(client, config, result);
}

}  // namespace quorvane
