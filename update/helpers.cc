// SPDX-License-Identifier: Apache-2.0
#include "update/helpers.h"

#include <stdexcept>

#include "logging/redact.h"
#include "quorvane/logging.h"
#include "support/json.h"

namespace quorvane {

std::string ExtractErrorMessage(const std::string& body) {
  const JsonPtr answer = ParseJson(body);
  if (auto message =
          StringMember(ObjectMember(answer.get(), "error"), "message")) {
    return *message;
  }
  return StringMember(answer.get(), "Message").value_or("");
}

std::string LastSegment(const std::string& uri) {
  const std::size_t slash = uri.rfind('/');
  return slash == std::string::npos ? "" : uri.substr(slash + 1);
}

std::string LastSegmentForLog(const std::string& uri) {
  const std::string segment = LastSegment(uri);
  std::string redacted = LastSegment(RedactUri(uri));
  const bool hides_only_within_it =
      redacted == segment || redacted == RedactUri(segment);
  return hides_only_within_it ? redacted : std::string(kRedacted);
}

std::string ExtractTaskId(const std::string& task_uri,
                          const std::string& body) {
  if (auto id = StringMember(ParseJson(body).get(), "Id")) return *id;
  return LastSegment(task_uri);
}

std::string ExtractTaskUri(const std::string& body, const Config& config) {
  const JsonPtr answer = ParseJson(body);
  if (auto link = StringMember(answer.get(), "@odata.id")) return *link;
  if (const auto id = StringMember(answer.get(), "Id")) {
    return (config.task_uri.empty() ? "/redfish/v1/TaskService/Tasks"
                                    : config.task_uri.front()) +
           "/" + *id;
  }
  for (const cJSON* message : Elements(ArrayMember(answer.get(), "Messages"))) {
    const auto message_id = StringMember(message, "MessageId");
    if (!message_id || message_id->find("Task.") == std::string::npos) continue;
    const cJSON* arguments = ArrayMember(message, "MessageArgs");
    if (arguments == nullptr) continue;
    if (auto link = StringValue(arguments->child)) return *link;
  }
  return {};
}

void SetTaskId(const std::string& body, UpdateRun& run) {
  const std::string& uri = run.result.task_uri;
  std::string& id = run.result.task_id;
  id = ExtractTaskId(uri, body);
  run.task_id_for_log =
      id == LastSegment(uri) ? LastSegmentForLog(uri) : RedactUri(id);
}

void TrackTask(const Response& answer, LogTask log_task, UpdateRun& run) {
  std::string& uri = run.result.task_uri;
  uri = ExtractTaskUri(answer.body, run.config);
  const bool from_header = uri.empty() && !answer.location.empty();
  if (from_header) uri = answer.location;
  SetTaskId(answer.body, run);
  if (log_task == LogTask::kNo || uri.empty()) return;
  const std::string uri_for_log = RedactUri(uri);
  if (from_header) {
    LogInfo(kUpdate, "Task URI from Location header: " + uri_for_log);
  }
  LogInfo(kUpdate, "Task URI: " + uri_for_log);
  LogInfo(kUpdate, "Task ID : " + run.task_id_for_log);
}

Response PostAction(const UpdateRun& run, const std::string& url,
                    const std::string& body) {
  constexpr long kTimeoutMs = 60'000;
  const Config& config = run.config;
  return run.client.post_json(url, body, {}, kTimeoutMs, config.username,
                              config.password, config.auth_type);
}

Response AnswerOrNone(const std::function<Response()>& request) {
  try {
    return request();
  } catch (const std::runtime_error&) {
    return {};
  }
}

}  // namespace quorvane
