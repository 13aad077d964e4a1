// SPDX-License-Identifier: Apache-2.0
// The tasks of a BMC (DMTF DSP2046, Task; DSP0266, "Asynchronous operations").
#ifndef QUORVANE_TOOLS_QUORVANE_REDFISH_TASKS_H_
#define QUORVANE_TOOLS_QUORVANE_REDFISH_TASKS_H_

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/quorvane/redfish/resource.h"

namespace quorvane::tool {

/// A message of a task (DSP0266, "Message object").
struct TaskMessage {
  std::string id = {};  ///< MessageId, e.g. "Update.1.0.TransferFailed".
  std::string text = {};
  std::string severity = {};
  std::string resolution = {};
};

/// A task as the BMC reports it. A text that it does not report is empty.
struct BmcTask {
  std::string uri;
  std::string name = {};
  std::string state = {};   ///< TaskState
  std::string status = {};  ///< TaskStatus: OK, Warning or Critical.
  std::string start = {};   ///< StartTime
  std::string end = {};     ///< EndTime
  std::optional<double> percent = {};
  std::vector<TaskMessage> messages = {};

  /// Whether its state is one in which a task still changes something.
  [[nodiscard]] bool IsRunning() const;
};

struct BmcTasks {
  std::string collection = {};  ///< URI
  std::vector<BmcTask> tasks = {};
  bool is_complete = false;  ///< Every task of the BMC was read.
};

/// The task in the body of a response from `uri`.
BmcTask TaskFrom(const std::string& uri, const nlohmann::json& body);

/// Reads the tasks that `service`, the TaskService, has. Of very many, only the
/// last ones are read.
BmcTasks ReadTasks(ResourceCache& cache, const std::string& service);

/// The URI of the TaskService: what the service root names, else the usual one.
std::string TaskServiceUri(ResourceCache& cache);

nlohmann::json ToJson(const BmcTask& task);
nlohmann::json ToJson(const BmcTasks& tasks);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_REDFISH_TASKS_H_
