// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_SCENARIO_H_
#define QUORVANE_SIMULATOR_SCENARIO_H_

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "simulator/http_message.h"

namespace quorvane::simulator {

/// A member of the firmware or software inventory.
struct InventoryMember {
  std::string id;
  std::string name;
  std::string version;
  /// The version after an update. Empty: an update does not change the member.
  std::string updated_version = {};
  std::string manufacturer = "Contoso";
  bool updateable = true;
  /// A JSON object that is merged into the resource (RFC 7396: null removes).
  std::string properties = {};
};

struct Inventory {
  std::vector<InventoryMember> members;
  /// Number of additional members: "Component-0001" and so on.
  int generated = 0;
  /// Members per page, linked by Members@odata.nextLink. 0: one page.
  int page_size = 0;
  /// A wrong value for Members@odata.count.
  std::optional<int> reported_count = {};
};

struct Chassis {
  std::string id;
  std::string manufacturer = "Contoso";
  std::string model = "Example Server";
  std::string serial_number = "0000000001";
  std::string part_number = "EX-1000";
  std::string chassis_type = "RackMount";
  std::string properties = {};  ///< As in InventoryMember.
};

/// A step of a task.
struct TaskStep {
  std::string state = "Running";  ///< TaskState of the Task schema.
  int percent = 0;                ///< -1: PercentComplete is absent.
  int polls = 1;                  ///< Responses that show it; 0: see seconds.
  double seconds = 0;             ///< Duration, if `polls` is 0.
  bool until_reboot = false;      ///< Staged: only a reboot ends this step.
  std::string health = "OK";      ///< TaskStatus: OK, Warning or Critical.
  std::string message_id = {};    ///< A message that is added in this step.
  std::string message = {};
};

/// The steps of every task, and how tasks are reported.
struct TaskScript {
  /// The last step never ends.
  std::vector<TaskStep> steps = {
      {.state = "New", .percent = 0},
      {.state = "Running",
       .percent = 25,
       .message_id = "Update.1.1.TransferringToComponent",
       .message = "The image is being transferred to the component."},
      {.state = "Running", .percent = 75},
      {.state = "Completed",
       .percent = 100,
       .message_id = "TaskEvent.1.0.TaskCompletedOK",
       .message = "The task has completed."}};
  /// What the Location header of a 202 names: "monitor" (DSP0266, task
  /// monitors), "task" or "none".
  std::string location = "monitor";
  bool task_in_body = true;        ///< False: the body of a 202 is empty.
  int monitor_final_status = 200;  ///< 200 with the task, or 204.
  int retry_after = 30;            ///< Seconds, in the 202; 0: no header.
  /// The task gets 404 after a poll has returned this percentage. Its update
  /// finishes.
  std::optional<int> disappears_at = {};
};

/// Where images are uploaded, and the response.
struct UploadEndpoints {
  std::vector<std::string> multipart_paths = {
      "/redfish/v1/UpdateService/update-multipart"};
  std::vector<std::string> binary_paths = {"/redfish/v1/UpdateService/update"};
  std::uint64_t max_bytes = 0;  ///< A larger image gets 413. 0: no limit.
  int status = 202;  ///< 202: with a task; 200 or 204: completed immediately.
  /// Seconds, in the 503 while a task runs; 0: no header.
  int busy_retry_after = 30;
};

struct SimpleUpdateAction {
  std::string path =
      "/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate";
  int status = 202;  ///< As in UploadEndpoints; 4xx, 5xx: rejected.
  /// Accepted schemes of ImageURI; any other gets 400.
  std::vector<std::string> protocols = {"HTTP", "HTTPS", "NFS", "CIFS"};
  bool requires_targets = false;  ///< 400 if Targets is absent or empty.
};

/// A POST to the SimpleUpdate action without ImageURI. It activates the
/// uploaded image.
struct Activation {
  int status = 202;       ///< As in SimpleUpdateAction.
  bool required = false;  ///< False: the task of the upload installs the image.
};

struct RebootBehavior {
  std::optional<int> by_itself_at = {};  ///< Percent that a poll has returned.
  /// Number of requests during which the BMC is unavailable.
  int requests = 0;
  double seconds = 0;  ///< Duration, if `requests` is 0.
  /// True: an unavailable BMC returns 503. False: it closes connections.
  bool returns_503 = false;
  bool keeps_tasks = true;  ///< False: a reboot deletes all tasks.
};

/// When the inventory shows the versions of a finished update.
struct VersionChange {
  /// "restart" (at the next reboot), "completion" or "never".
  std::string at = "restart";
  /// The delay after that, counted while the BMC responds: reads of the
  /// collection of the firmware inventory that still show the old versions, or
  /// seconds from the first request that it executes.
  int after_reads = 0;
  double after_seconds = 0;
};

/// An image that can be downloaded without credentials.
struct Image {
  std::string path = "/images/firmware.bin";
  std::uint64_t size = 65536;  ///< Size in bytes, filled with a fixed pattern.
  std::string text = {};       ///< Content, instead of the pattern.
};

/// A fault, and the requests that it applies to. Every field that is set must
/// match.
struct FaultRule {
  std::string method = {};  ///< "POST"; empty: any.
  std::string path = {};    ///< Exact, or a prefix if it ends with "*".
  /// inventory, chassis, upload, simple_update, activation, task, reboot,
  /// download; empty: any.
  std::string phase = {};
  int after = 0;  ///< Number of matching requests that pass first.
  int every = 1;  ///< Of the rest, the rule applies to each n-th.
  int first = 0;  ///< The rule applies to at most n requests; 0: no limit.
  /// The rule counts and applies only after the BMC has rebooted.
  bool after_reboot = false;
  /// Apply the rule before the body is read, so that an upload ends after its
  /// header. A POST to the SimpleUpdate action then counts as activation,
  /// because only the body distinguishes the two.
  bool before_body = false;
  /// The BMC executes the request, and `response` adds only its fault and
  /// delays. False: `response` is sent, and the request is not executed.
  bool executes_request = false;
  BmcResponse response = {};
};

/// The behavior of a simulated BMC. The defaults are the scenario "clean".
struct Scenario {
  std::string description = "A BMC without faults.";
  std::string user = "admin";
  std::string password = "password";
  std::string system_id = "system";
  std::string system_properties = {};  ///< As in InventoryMember.
  /// False: ServiceEnabled of the UpdateService is false, and updates get 503.
  bool service_enabled = true;
  std::string update_service_properties = {};  ///< As in InventoryMember.
  std::string power_state = "On";              ///< "On" or "Off".
  std::vector<std::string> reset_types = {
      "On",      "ForceOff",     "GracefulShutdown", "GracefulRestart",
      "ForceOn", "ForceRestart", "PowerCycle"};
  Inventory firmware = {.members = {{"BMC", "BMC firmware", "1.0.0", "1.1.0"},
                                    {"BIOS", "System BIOS", "2.4.1", "2.5.0"},
                                    {"NIC0", "Network adapter", "20.1.7"}}};
  Inventory software = {
      .members = {{"OSAgent", "Agent in the operating system", "3.2.0"}}};
  std::vector<Chassis> chassis = {{.id = "chassis"}};
  UploadEndpoints upload = {};
  SimpleUpdateAction simple_update = {};
  Activation activation = {};
  TaskScript task = {};
  VersionChange version_change = {};
  RebootBehavior reboot = {};
  std::vector<Image> images = {{}};
  std::vector<FaultRule> faults = {};
};

/// An invalid scenario. The message names the file, the key and the allowed
/// values.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Parses a scenario; see README.md and scenario.schema.json in this directory.
/// Missing keys keep the defaults above.
/// @param origin  Names the scenario in errors, such as the path of its file.
/// @throws ScenarioError
Scenario ParseScenario(const std::string& json, const std::string& origin);

/// @throws ScenarioError, also if the file cannot be read.
Scenario LoadScenario(const std::string& path);

/// Reads an object of scenario names and weights, in the order of the file:
/// {"clean": 90, "task-fails": 3}. At least one weight is positive.
/// @throws ScenarioError
std::vector<std::pair<std::string, int>> LoadScenarioWeights(
    const std::string& path);

/// The path of a scenario file. `file_or_name` is an existing file, or the name
/// of a built-in scenario such as "clean", which is in the data directory of
/// the installation or of the build tree.
/// @throws ScenarioError, which lists the built-in scenarios.
std::string FindScenario(const std::string& file_or_name);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_SCENARIO_H_
