// SPDX-License-Identifier: Apache-2.0
// An update from a local file: two upload endpoints, and a rule for each
// action.
#ifndef QUORVANE_TESTS_SUPPORT_LOCAL_UPDATE_H_
#define QUORVANE_TESTS_SUPPORT_LOCAL_UPDATE_H_

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/fixture.h"

namespace quorvane::test {

inline constexpr const char* kFirst = "/redfish/v1/first";
inline constexpr const char* kSecond = "/redfish/v1/second";
inline constexpr const char* kTask = "/redfish/v1/TaskService/Tasks/7";
inline constexpr const char* kActivate = "/redfish/v1/activate";
inline constexpr const char* kReset = "/redfish/v1/reset";

inline constexpr const char* kLocalRules = R"({
  "retry_config": {"max_retries": 2, "sleep_time": 5,
                   "backoff_strategy": "fixed"},
  "firmware_update": {
    "multipart_update": {
      "upload_uri": ["/redfish/v1/first", "/redfish/v1/second"],
      "upload_rules": {"202": "track_task", "400": "retry_with_fix",
                       "413": "split_and_retry",
                       "503": "retry_with_backoff"}},
    "task_monitoring": {
      "polling_interval": 30, "max_polling_time_seconds": 130,
      "task_states": {"Completed": "proceed_to_activation",
                      "Exception": "retry_upload",
                      "Cancelled": "restart_upload",
                      "Interrupted": "retry_last_chunk",
                      "Killed": "restart_upload"}},
    "activation": {
      "activation_uri": ["/redfish/v1/activate"],
      "activation_rules": {"200": "check_reboot", "202": "poll_task",
                           "400": "retry_activation"}},
    "reboot": {
      "reboot_uri": ["/redfish/v1/reset"],
      "reboot_rules": {"204": "success", "202": "poll_task",
                       "400": "retry_reboot"}}}
})";

/// The BMC accepts the first upload, completes the task, and reboots.
class LocalUpdateTest : public BmcTest {
 protected:
  LocalUpdateTest() : image(directory.Write("image.blx", "firmware")) {
    WriteRules(kLocalRules);
    bmc.On("POST", kFirst).Respond(202, TaskLink(kTask));
    bmc.On("GET", kTask).Respond(200, Task("Completed", 100));
    bmc.On("POST", kReset).Respond(204);
  }

  /// Merges `patch` into the rules.
  void PatchRules(const std::string& patch) {
    auto rules = nlohmann::json::parse(kLocalRules);
    rules.merge_patch(nlohmann::json::parse(patch));
    WriteRules(rules.dump());
  }

  /// Updates without an inventory.
  UpdateResponse Update(const std::vector<std::string>& targets = {}) {
    UpdateRequest request;
    request.bmc_ip = bmc.Address();
    request.username = "admin";
    request.password = "s3cret";
    request.local_file = image;
    request.targets = targets;
    request.prefetched_inventory.resize(1);
    return PerformUpdate(request);
  }

  /// Sets the responses to a request; the last one repeats.
  void SetResponses(const char* method, const std::string& path,
                    const std::vector<simulator::BmcResponse>& responses) {
    auto route = bmc.On(method, path);
    route.Respond(responses.front());
    for (std::size_t i = 1; i < responses.size(); ++i) route.Then(responses[i]);
  }

  std::string image;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_LOCAL_UPDATE_H_
