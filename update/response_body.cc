// SPDX-License-Identifier: Apache-2.0
#include "update/response_body.h"

#include "support/json.h"
#include "update/last_segment.h"

namespace quorvane {

std::string ExtractErrorMessage(const std::string& body) {
  const JsonPtr document = ParseJson(body);
  if (auto message =
          StringMember(ObjectMember(document.get(), "error"), "message")) {
    return *message;
  }
  return StringMember(document.get(), "Message").value_or("");
}

std::string ExtractTaskId(const std::string& task_uri,
                          const std::string& body) {
  if (auto id = StringMember(ParseJson(body).get(), "Id")) return *id;
  return LastSegment(task_uri);
}

std::string ExtractTaskUri(const std::string& body, const Config& config) {
  const JsonPtr document = ParseJson(body);
  if (auto link = StringMember(document.get(), "@odata.id")) return *link;
  if (const auto id = StringMember(document.get(), "Id")) {
    return (config.task_uri.empty() ? "/redfish/v1/TaskService/Tasks"
                                    : config.task_uri.front()) +
           "/" + *id;
  }
  for (const cJSON* message :
       Elements(ArrayMember(document.get(), "Messages"))) {
    const auto message_id = StringMember(message, "MessageId");
    if (!message_id || message_id->find("Task.") == std::string::npos) continue;
    const cJSON* arguments = ArrayMember(message, "MessageArgs");
    if (arguments == nullptr) continue;
    if (auto link = StringValue(arguments->child)) return *link;
  }
  return {};
}

}  // namespace quorvane
