// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string>
#include <utility>

#include "config/limits.h"
#include "config/rule_for.h"
#include "config/target.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "support/wait.h"
#include "update/phases.h"
#include "update/requests.h"
#include "update/response_body.h"
#include "update/tracked_task.h"

namespace quorvane {
namespace {

// What one poll means for the task.
enum class TaskVerdict { kKeepPolling, kSucceeded, kFailed };

class TaskMonitor {
 public:
  explicit TaskMonitor(UpdateRun& run) : run_(run) {}

  TaskVerdict Decide(const Response& response) {
    switch (response.status_code) {
      case 200:
      case 202:
        return HandleDocument(response.body);
      case 404:
        return HandleNotFound();
      default:
        LogWarning(kUpdate, "Task poll returned HTTP " +
                                std::to_string(response.status_code));
        return TaskVerdict::kKeepPolling;
    }
  }

 private:
  TaskVerdict HandleDocument(const std::string& body) {
    const JsonPtr task = ParseJson(body);
    const std::string state =
        StringMember(task.get(), "TaskState").value_or("");
    if (state.empty()) {
      LogWarning(kUpdate, "Could not parse TaskState from response");
      return TaskVerdict::kKeepPolling;
    }
    if (run_.result.task_id.empty()) SetTaskId(body, run_);
    std::string line = "[RF-TASK] State: " + state;
    const int percent = IntMember(task.get(), "PercentComplete").value_or(-1);
    if (percent >= 0) {
      run_.result.percent_complete = percent;
      line += "  PercentComplete: " + std::to_string(percent) + "%";
    }
    LogInfo(kUpdate, line);
    run_.result.task_state = state;
    LogDocument(task.get(), body);
    return DecideByState(state);
  }

  void LogDocument(const cJSON* task, const std::string& body) const {
    // Indentation makes only a hostile document longer than this.
    constexpr std::size_t kMaxSize = 1U << 26;
    const auto text =
        PrintJsonWithin(task, std::min(4 * body.size() + 4096, kMaxSize));
    const std::string line = "[RF-TASK] Task ID: " + run_.task_id_for_log;
    if (text) {
      LogInfo(kUpdate, line + "\nResponse body:\n" + RedactResponse(*text));
    } else {
      LogDebug(kUpdate, "cJSON_Print failed, using raw body");
      LogInfo(kUpdate, line + "  Response body: " + RedactResponse(body));
    }
  }

  TaskVerdict DecideByState(const std::string& state) {
    switch (RuleFor(run_.config.task_states, state)
                .value_or(TaskAction::continue_polling)) {
      case TaskAction::proceed_to_activation:
        LogResult("  Result: Success");
        run_.result.message = "Task completed successfully";
        return TaskVerdict::kSucceeded;
      case TaskAction::retry_upload:
        LogResult("  Result: Exception -- upload retry needed");
        run_.result.message = "Task exception -- upload retry needed";
        return TaskVerdict::kFailed;
      case TaskAction::restart_upload:
        LogResult("  Result: Cancelled -- upload restart needed");
        run_.result.message = "Task cancelled -- upload restart needed";
        return TaskVerdict::kFailed;
      case TaskAction::retry_last_chunk:
        LogResult("  Result: Interrupted -- last chunk retry needed");
        run_.result.message = "Task interrupted -- last chunk retry needed";
        return TaskVerdict::kFailed;
      case TaskAction::continue_polling:
        return HandleUnfinished(state);
    }
    return TaskVerdict::kKeepPolling;
  }

  void LogResult(const char* result) const {
    LogInfo(kUpdate, "[RF-TASK] State: " + run_.result.task_state + result);
  }

  // Some BMCs keep a task in such a state until the system reboots, so polling
  // ends after a few polls.
  TaskVerdict HandleUnfinished(const std::string& state) {
    if (state != "Scheduled" && state != "Starting") {
      staged_polls_ = 0;
      return TaskVerdict::kKeepPolling;
    }
    if (++staged_polls_ < kStagedPolls) return TaskVerdict::kKeepPolling;
    LogInfo(kUpdate, "[RF-TASK] Task stable in '" + state +
                         "' state -- firmware staged, waiting for reboot");
    run_.result.message =
        "Firmware staged successfully (scheduled, waiting for reboot)";
    return TaskVerdict::kSucceeded;
  }

  TaskVerdict HandleNotFound() {
    if (run_.result.percent_complete < kAppliedPercent) {
      run_.result.message = "Update Method Not Supported (HTTP 404)";
      LogError(kUpdate, run_.result.message);
      return TaskVerdict::kFailed;
    }
    LogInfo(kUpdate, "Task returned 404 after reaching " +
                         std::to_string(run_.result.percent_complete) +
                         "% -- Machine likely rebooted to apply firmware. "
                         "Treating as success.");
    run_.result.message = "Task completed (system rebooted during activation)";
    run_.result.task_state = "Completed";
    run_.result.percent_complete = 100;
    return TaskVerdict::kSucceeded;
  }

  UpdateRun& run_;
  int staged_polls_ = 0;
};

}  // namespace

PhaseResult MonitorTask(UpdateRun& run) {
  const Config& config = run.config;
  UpdateResponse& result = run.result;
  if (result.task_uri.empty()) {
    LogInfo(kUpdate, "No task URI to poll, skipping task monitoring");
    return PhaseResult::kSucceeded;
  }
  const std::string url = ResolveUrl(config, result.task_uri);
  const int interval = std::max(config.polling_interval, 1);
  const long long max_attempts = config.max_polling_time_seconds / interval;
  const std::string interval_text = std::to_string(interval) + "s";
  LogInfo(kUpdate, "[RF-UPDATE] Task created: " + RedactUri(result.task_uri));
  LogInfo(kUpdate, "[RF-UPDATE] Polling interval: " + interval_text);
  LogInfo(kUpdate, "Polling task: " + UriForLog(url) +
                       " (interval=" + interval_text + ")");

  TaskMonitor monitor(run);
  for (long long attempt = 1; attempt <= max_attempts; ++attempt) {
    LogInfo(kUpdate, "[RF-TASK] Polling task (attempt " +
                         std::to_string(attempt) + "/" +
                         std::to_string(max_attempts) + ")");
    SleepSeconds(interval);
    const Response response = ResponseOrStatusZero([&] {
      return run.client.get(url, {}, kPollTimeoutMs, config.username,
                            config.password, config.auth_type);
    });
    switch (monitor.Decide(response)) {
      case TaskVerdict::kSucceeded:
        return PhaseResult::kSucceeded;
      case TaskVerdict::kFailed:
        return PhaseResult::kFailed;
      case TaskVerdict::kKeepPolling:
        break;
    }
  }
  result.message = "Task polling timed out";
  return PhaseResult::kFailed;
}

PhaseResult MonitorTaskOf(const Response& response, const char* label,
                          UpdateRun& run) {
  std::string link = ExtractTaskUri(response.body, run.config);
  if (!link.empty()) {
    LogInfo(kUpdate, label + RedactUri(link));
    run.result.task_uri = std::move(link);
  }
  return MonitorTask(run);
}

}  // namespace quorvane
