// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_SCENARIO_H_
#define QUORVANE_SIMULATOR_SCENARIO_H_

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/http_message.h"

namespace quorvane::simulator {

/// A member of the firmware or software inventory.
struct InventoryMember {
  std::string id;
  std::string name;
  std::string version;
  /// The version after an update; empty: an update leaves this member alone.
  std::string updated_version = {};
  std::string manufacturer = "Contoso";
  bool updateable = true;
  /// Text of a JSON object merged over the resource (RFC 7396: null removes).
  std::string properties = {};
};

struct Inventory {
  std::vector<InventoryMember> members;
  /// Further members made up: "Component-0001", version "1.0.0", and on.
  int generated = 0;
  /// Members per page, linked by Members@odata.nextLink; 0: one page.
  int page_size = 0;
  /// Members@odata.count where it shall differ from the truth.
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

/// One stretch of a task's script.
struct TaskStep {
  std::string state = "Running";  ///< TaskState of the Task schema.
  int percent = 0;                ///< -1: no PercentComplete is shown.
  int polls = 1;                  ///< Answers that show it; 0: see seconds.
  double seconds = 0;             ///< Its length by the clock, if polls is 0.
  bool until_reboot = false;      ///< Staged: only a restart ends this step.
  std::string health = "OK";      ///< TaskStatus: OK, Warning or Critical.
  std::string message_id = {};    ///< A message that appears with this step.
  std::string message = {};
};

struct TaskScript {
  /// The last step lasts for ever, whatever its polls say.
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
  /// "monitor" (DSP0266, task monitors), "task" or "none".
  std::string location = "monitor";
  bool task_in_body = true;  ///< Else an accepted request has an empty body.
  int monitor_final_status = 200;  ///< 200 with the task, or 204.
  int retry_after = 30;            ///< Seconds, in the answer; 0: no field.
};

struct UploadEndpoints {
  std::vector<std::string> multipart_paths = {
      "/redfish/v1/UpdateService/update-multipart"};
  std::vector<std::string> binary_paths = {"/redfish/v1/UpdateService/update"};
  std::uint64_t max_bytes = 0;  ///< A larger image: 413. 0: no limit.
  int status = 202;             ///< 202 with a task; 200 or 204: done at once.
  int busy_retry_after = 30;    ///< Of the 503 while a task runs; 0: no field.
};

struct SimpleUpdateAction {
  std::string path =
      "/redfish/v1/UpdateService/Actions/UpdateService.SimpleUpdate";
  int status = 202;  ///< 202 with a task; 200 or 204: done; 4xx: refused.
  /// Schemes of ImageURI that are taken; another one: 400.
  std::vector<std::string> protocols = {"HTTP", "HTTPS", "NFS", "CIFS"};
  bool requires_targets = false;  ///< 400 when Targets is absent or empty.
};

/// A POST to the SimpleUpdate action without ImageURI, which starts what was
/// uploaded.
struct Activation {
  int status = 202;       ///< As for SimpleUpdate.
  bool required = false;  ///< Else the upload's own task installs the image.
};

struct RebootBehavior {
  std::optional<int> by_itself_at = {};  ///< Percent shown by a task.
  int requests = 0;          ///< Requests that meet the machine away.
  double seconds = 0;        ///< How long it is away, if requests is 0.
  bool answers_503 = false;  ///< Else connections are dropped while away.
  bool keeps_tasks = true;   ///< Else old tasks are 404 afterwards.
};

/// Served without credentials, for a client that fetches an image.
struct Image {
  std::string path = "/images/firmware.bin";
  std::uint64_t size = 65536;  ///< Bytes of a fixed pattern.
  std::string text = {};       ///< The content instead of the pattern.
};

/// A fault at chosen requests. Every field that is set must match.
struct FaultRule {
  std::string method = {};  ///< "POST"; empty: any.
  std::string path = {};    ///< Exact, or a prefix when it ends in "*".
  /// inventory, chassis, upload, simple_update, activation, task, reboot,
  /// download; empty: any.
  std::string phase = {};
  int after = 0;  ///< So many matching requests pass first.
  int every = 1;  ///< Of the rest, each n-th is applied.
  int first = 0;  ///< At most so many are applied; 0: no end.
  /// Struck before the body is read: an upload is cut off at its head. A POST
  /// to the SimpleUpdate action counts as activation then, as only the body
  /// tells the two apart.
  bool before_body = false;
  /// The machine does what it is asked and its own answer suffers the
  /// response's fault and delay; else the machine never sees the request.
  bool machine_acts = false;
  BmcResponse response = {};
};

/// All that makes one simulated machine. As it stands: a clean one.
struct Scenario {
  std::string description = "A machine without faults.";
  std::string user = "admin";
  std::string password = "password";
  std::string system_id = "system";
  std::string power_state = "On";  ///< "On" or "Off".
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
  /// When a finished update shows in the inventory: "restart" or "completion".
  std::string versions_change_at = "restart";
  RebootBehavior reboot = {};
  std::vector<Image> images = {{}};
  std::vector<FaultRule> faults = {};
};

/// A scenario that cannot be used: which file, which place, what is allowed.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a scenario (README.md beside this file; JSON Schema in
/// scenario.schema.json). Absent keys keep the defaults above.
/// @param origin  Named in errors, e.g. the file's path.
/// @throws ScenarioError
Scenario ParseScenario(const std::string& json, const std::string& origin);

/// @throws ScenarioError, also when the file is not readable.
Scenario LoadScenario(const std::string& path);

/// The path of a scenario given by its file or by the name of a ready one, such
/// as "clean": an existing file, else NAME.json beside the installed data
/// directory, else in the source tree.
/// @throws ScenarioError that lists the ready ones.
std::string FindScenario(const std::string& file_or_name);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_SCENARIO_H_
