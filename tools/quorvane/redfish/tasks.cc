// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/redfish/tasks.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace quorvane::tool {
namespace {

std::string TextIn(const nlohmann::json& object, const char* key) {
  return StringIn(object, key).value_or("");
}

// Most BMCs keep finished tasks, and add new ones at the end.
constexpr std::size_t kMaxTasks = 100;
constexpr std::size_t kMaxListedTasks = 10'000;

}  // namespace

bool BmcTask::IsRunning() const {
  constexpr std::array<std::string_view, 10> kStates = {
      "New",     "Starting", "Running", "Suspended",  "Interrupted",
      "Pending", "Stopping", "Service", "Cancelling", "Scheduled"};
  return std::find(kStates.begin(), kStates.end(), state) != kStates.end();
}

BmcTask TaskFrom(const std::string& uri, const nlohmann::json& body) {
  BmcTask task{.uri = StringIn(body, "@odata.id").value_or(uri),
               .name = TextIn(body, "Name"),
               .state = TextIn(body, "TaskState"),
               .status = TextIn(body, "TaskStatus"),
               .start = TextIn(body, "StartTime"),
               .end = TextIn(body, "EndTime"),
               .percent = NumberIn(body, "PercentComplete")};
  const auto messages = body.find("Messages");
  if (messages == body.end() || !messages->is_array()) return task;
  for (const nlohmann::json& message : *messages) {
    std::string severity = TextIn(message, "MessageSeverity");
    if (severity.empty()) severity = TextIn(message, "Severity");
    task.messages.push_back({.id = TextIn(message, "MessageId"),
                             .text = TextIn(message, "Message"),
                             .severity = severity,
                             .resolution = TextIn(message, "Resolution")});
  }
  return task;
}

std::string TaskServiceUri(ResourceCache& cache) {
  const auto root = cache.ObjectAt(kServiceRootUri);
  return (root ? LinkIn(*root, "Tasks") : std::nullopt)
      .value_or("/redfish/v1/TaskService");
}

BmcTasks ReadTasks(ResourceCache& cache, const std::string& service) {
  const auto description = cache.ObjectAt(service);
  BmcTasks tasks;
  tasks.collection =
      (description ? LinkIn(*description, "Tasks") : std::nullopt)
          .value_or("/redfish/v1/TaskService/Tasks");
  Members members = ReadMembers(cache, tasks.collection, kMaxListedTasks);
  tasks.is_complete = members.is_complete;
  if (members.uris.size() > kMaxTasks) {
    members.uris.erase(members.uris.begin(), members.uris.end() - kMaxTasks);
    tasks.is_complete = false;
  }
  cache.Fetch(members.uris);
  for (const std::string& uri : members.uris) {
    const auto body = cache.ObjectAt(uri);
    if (body) tasks.tasks.push_back(TaskFrom(uri, *body));
    // A finished task can disappear while the list is read.
    if (!body && PresenceOf(cache.At(uri)) != Presence::kAbsent) {
      tasks.is_complete = false;
    }
  }
  return tasks;
}

nlohmann::json ToJson(const BmcTask& task) {
  nlohmann::json messages = nlohmann::json::array();
  for (const TaskMessage& message : task.messages) {
    messages.push_back({{"message_id", message.id},
                        {"message", message.text},
                        {"severity", message.severity},
                        {"resolution", message.resolution}});
  }
  return {{"uri", task.uri},
          {"name", task.name},
          {"state", task.state},
          {"status", task.status},
          {"percent", NumberJson(task.percent)},
          {"start", task.start},
          {"end", task.end},
          {"is_running", task.IsRunning()},
          {"messages", messages}};
}

nlohmann::json ToJson(const BmcTasks& tasks) {
  nlohmann::json list = nlohmann::json::array();
  for (const BmcTask& task : tasks.tasks) list.push_back(ToJson(task));
  return {{"tasks", list}, {"is_complete", tasks.is_complete}};
}

}  // namespace quorvane::tool
