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
  explicit TaskMonitor(UpdateRun& run) : run_(run) {}

  Verdict Handle(const Response& answer) {
    switch (answer.status_code) {
      case 200:
      case 202:
        return HandleDocument(answer.body);
      case 404:
        return HandleNotFound();
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
    if (run_.result.task_id.empty()) SetTaskId(body, run_);
    std::string told = "[RF-TASK] State: " + state;
    const int percent = IntMember(task.get(), "PercentComplete").value_or(-1);
    if (percent >= 0) {
      run_.result.percent_complete = percent;
      told += "  PercentComplete: " + std::to_string(percent) + "%";
    }
    LogInfo(kUpdate, told);
    run_.result.task_state = state;
    LogDocument(task.get(), body);
    return Decide(state);
  }

  void LogDocument(const cJSON* task, const std::string& body) const {
    // Some times the length is plenty for any document but a hostile one.
    constexpr std::size_t kMostKept = 1U << 26;
    const auto text =
        PrintJsonWithin(task, std::min(4 * body.size() + 4096, kMostKept));
    const std::string told = "[RF-TASK] Task ID: " + run_.task_id_for_log;
    if (text) {
      LogInfo(kUpdate, told + "\nResponse body:\n" + RedactAnswer(*text));
    } else {
      LogDebug(kUpdate, "cJSON_Print failed, using raw body");
      LogInfo(kUpdate, told + "  Response body: " + RedactAnswer(body));
    }
  }

  Verdict Decide(const std::string& state) {
    switch (RuleFor(run_.config.task_states, state)
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
        return HandleUnfinished(state);
    }
    return std::nullopt;
  }

  Verdict End(bool good, const char* told, const char* message) {
    LogInfo(kUpdate,
            "[RF-TASK] State: " + run_.result.task_state + "  Result: " + told);
    run_.result.message = message;
    return good;
  }

  // Some BMCs leave a task waiting until the system restarts: it will not move
  // before that, so its third such poll in a row ends the watch.
  Verdict HandleUnfinished(const std::string& state) {
    if (state != "Scheduled" && state != "Starting") {
      staged_polls_ = 0;
      return std::nullopt;
    }
    if (++staged_polls_ <= 2) return std::nullopt;
    LogInfo(kUpdate, "[RF-TASK] Task stable in '" + state +
                         "' state -- firmware staged, waiting for reboot");
    run_.result.message =
        "Firmware staged successfully (scheduled, waiting for reboot)";
    return true;
  }

  // A BMC that restarts forgets its tasks; past half way that is taken as the
  // firmware being applied.
  Verdict HandleNotFound() {
    if (run_.result.percent_complete < 50) {
      run_.result.message = "Update Method Not Supported (HTTP 404)";
      LogError(kUpdate, run_.result.message);
      return false;
    }
    LogInfo(kUpdate, "Task returned 404 after reaching " +
                         std::to_string(run_.result.percent_complete) +
                         "% -- Machine likely rebooted to apply firmware. "
                         "Treating as success.");
    run_.result.message = "Task completed (system rebooted during activation)";
    run_.result.task_state = "Completed";
    run_.result.percent_complete = 100;
    return true;
  }

  UpdateRun& run_;
  int staged_polls_ = 0;
};

}  // namespace

bool MonitorTask(UpdateRun& run) {
  const Config& config = run.config;
  UpdateResponse& result = run.result;
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

  TaskMonitor monitor(run);
  for (long long attempt = 1; attempt <= max_attempts; ++attempt) {
    LogInfo(kUpdate, "[RF-TASK] Polling task (attempt " +
                         std::to_string(attempt) + "/" +
                         std::to_string(max_attempts) + ")");
    SleepSeconds(interval);
    const Response answer = AnswerOrNone([&] {
      return run.client.get(url, {}, kTimeoutMs, config.username,
                            config.password, config.auth_type);
    });
    if (const Verdict verdict = monitor.Handle(answer)) return *verdict;
  }
  result.message = "Task polling timed out";
  return false;
}

bool MonitorTaskOf(const Response& answer, const char* label, UpdateRun& run) {
  std::string link = ExtractTaskUri(answer.body, run.config);
  if (!link.empty()) {
    LogInfo(kUpdate, label + RedactUri(link));
    run.result.task_uri = std::move(link);
  }
  return MonitorTask(run);
}

}  // namespace quorvane
