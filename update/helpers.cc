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

std::string ExtractTaskId(const std::string& task_uri,
                          const std::string& body) {
  if (auto id = StringMember(ParseJson(body).get(), "Id")) return *id;
  // Of a link without a path this is the authority.
  const std::string uri = RedactUri(task_uri);
  const std::size_t slash = uri.rfind('/');
  return slash == std::string::npos ? "" : uri.substr(slash + 1);
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

void AdoptTask(const Response& answer, const Config& config, Telling telling,
               UpdateResponse& result) {
  result.task_uri = ExtractTaskUri(answer.body, config);
  const bool from_header = result.task_uri.empty() && !answer.location.empty();
  if (from_header) result.task_uri = answer.location;
  result.task_id = ExtractTaskId(result.task_uri, answer.body);
  if (telling == Telling::kSilent || result.task_uri.empty()) return;
  const std::string uri = RedactUri(result.task_uri);
  if (from_header) LogInfo(kUpdate, "Task URI from Location header: " + uri);
  LogInfo(kUpdate, "Task URI: " + uri);
  LogInfo(kUpdate, "Task ID : " + result.task_id);
}

Response PostAction(const HttpClient& client, const std::string& url,
                    const std::string& body, const Config& config) {
  constexpr long kTimeoutMs = 60'000;
  return client.post_json(url, body, {}, kTimeoutMs, config.username,
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
