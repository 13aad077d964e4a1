// SPDX-License-Identifier: Apache-2.0
// Polling of a task: the meaning of each state and status, the number of polls,
// the result, and what is redacted in the log.
#include <string>
#include <vector>

#include "tests/support/local_update.h"

namespace quorvane::test {
namespace {

using simulator::BmcResponse;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class TaskMonitorTest : public LocalUpdateTest {};

struct TaskCase {
  const char* name;
  std::vector<BmcResponse> polls;
  const char* state;
  int percent = -1;
  const char* failure = nullptr;  // message if the update stops before a reboot
  const char* log_line;
  bool repeats = false;  // the only poll, up to the limit of four
};

TEST_F(TaskMonitorTest, EndsPollingByStateAndStatus) {
  const auto task = [](const std::string& state, int percent = -1) {
    return BmcResponse{.body = Task(state, percent)};
  };
  const BmcResponse no_response{.fault = simulator::Fault::kDrop};
  const BmcResponse not_found{.status = 404};
  const char* last_attempt = "[RF-TASK] Polling task (attempt 4/4)";
  const std::vector<TaskCase> cases = {
      {.name = "completed",
       .polls = {task("Completed", 100)},
       .state = "Completed",
       .percent = 100,
       .log_line = "[RF-TASK] State: Completed  Result: Success"},
      {.name = "exception",
       .polls = {task("Running", 10), task("Exception")},
       .state = "Exception",
       .percent = 10,
       .failure = "Task exception -- upload retry needed",
       .log_line = "[RF-TASK] State: Exception  Result: Exception -- upload "
                   "retry needed"},
      {.name = "cancelled",
       .polls = {task("Cancelled")},
       .state = "Cancelled",
       .failure = "Task cancelled -- upload restart needed",
       .log_line = "[RF-TASK] State: Cancelled  Result: Cancelled -- upload "
                   "restart needed"},
      {.name = "interrupted",
       .polls = {task("Interrupted")},
       .state = "Interrupted",
       .failure = "Task interrupted -- last chunk retry needed",
       .log_line = "[RF-TASK] State: Interrupted  Result: Interrupted -- last "
                   "chunk retry needed"},
      // Only the three states above stop the update.
      {.name = "killed",
       .polls = {task("Killed")},
       .state = "Killed",
       .log_line = "[RF-TASK] State: Killed  Result: Cancelled -- upload "
                   "restart needed"},
      {.name = "staged",
       .polls = {task("Scheduled"), task("Starting"), task("Scheduled")},
       .state = "Scheduled",
       .log_line = "[RF-TASK] Task stable in 'Scheduled' state -- firmware "
                   "staged, waiting for reboot"},
      {.name = "staged despite a poll without a state",
       .polls = {task("Starting"), no_response, task("Starting"),
                 task("Starting")},
       .state = "Starting",
       .log_line = "[RF-TASK] Task stable in 'Starting' state -- firmware "
                   "staged, waiting for reboot"},
      {.name = "not staged after another state",
       .polls = {task("Starting"), task("Starting"), task("Running"),
                 task("Starting")},
       .state = "Starting",
       .log_line = last_attempt},
      {.name = "not found from 50 percent on",
       .polls = {task("Running", 50), not_found},
       .state = "Completed",
       .percent = 100,
       .log_line = "Task returned 404 after reaching 50% -- Machine likely "
                   "rebooted to apply firmware. Treating as success."},
      {.name = "not found below 50 percent",
       .polls = {task("Running", 49), not_found},
       .state = "Running",
       .percent = 49,
       .log_line = "Update Method Not Supported (HTTP 404)"},
      {.name = "negative percentage",
       .polls = {task("Running", 30), task("Running", -1), not_found},
       .state = "Running",
       .percent = 30,
       .log_line = "[RF-TASK] State: Running"},
      {.name = "endless",
       .polls = {task("Running", 99)},
       .state = "Running",
       .percent = 99,
       .log_line = last_attempt,
       .repeats = true},
      {.name = "no response",
       .polls = {no_response},
       .state = "",
       .log_line = "Task poll returned HTTP 0",
       .repeats = true},
      {.name = "status 503",
       .polls = {BmcResponse{.status = 503}},
       .state = "",
       .log_line = "Task poll returned HTTP 503",
       .repeats = true}};
  for (const TaskCase& row : cases) {
    SCOPED_TRACE(row.name);
    SetResponses("GET", kTask, row.polls);
    const std::size_t waits_before = Waits().size();
    const UpdateResponse result = Update();
    EXPECT_EQ(result.task_state, row.state);
    EXPECT_EQ(result.percent_complete, row.percent);
    EXPECT_EQ(result.reboot_performed, row.failure == nullptr);
    EXPECT_THAT(Log("update"), Contains(row.log_line));
    EXPECT_EQ(Waits().size() - waits_before,
              row.repeats ? 4 : row.polls.size());
    if (row.failure == nullptr) continue;
    EXPECT_EQ(result.message, row.failure);
    EXPECT_EQ(Log("update").back(),
              std::string("Task ended in state: ") + row.state);
  }
}

TEST_F(TaskMonitorTest, TimesOutWithoutPollIfIntervalExceedsLimit) {
  PatchRules(R"({"firmware_update": {"task_monitoring":
      {"max_polling_time_seconds": 29}, "reboot": {"reboot_required": false}}})");
  EXPECT_EQ(Update().message, "Task polling timed out");
  EXPECT_THAT(Waits(), IsEmpty());
  EXPECT_THAT(Log("update"),
              AllOf(Contains("Reboot not required by config"),
                    Not(Contains(StartsWith("Percent Complete: ")))));
}

TEST_F(TaskMonitorTest, TakesIdFromTaskIfLinkHasNone) {
  const std::string link = std::string(kTask) + "/";
  bmc.On("POST", kFirst)
      .Respond(BmcResponse{.status = 202, .headers = {{"Location", link}}});
  bmc.On("GET", link).Respond(200, Task("Completed"));
  const UpdateResponse result = Update();
  EXPECT_EQ(result.task_uri, link);
  EXPECT_EQ(result.task_id, "T1");
}

struct LocationCase {
  std::string location, id, id_for_log;
};

// The result contains the URI and the ID of the task unchanged.
TEST_F(TaskMonitorTest, RedactsTaskIdOnlyInLog) {
  bmc.On("POST", kActivate).Respond(202, TaskLink(kTask));
  for (const LocationCase& row : std::vector<LocationCase>{
           {std::string(kTask) + "?token=s3c", "7?token=s3c",
            "7?token=<REDACTED>"},
           {std::string(kTask) + "?token=a/s3c", "s3c", "<REDACTED>"},
           {"https://u:s3c@[::1]:1", "u:s3c@[::1]:1", "u:<REDACTED>@[::1]:1"},
           {"https://u:a/s3c@[::1]:1", "s3c@[::1]:1", "<REDACTED>"}}) {
    SCOPED_TRACE(row.location);
    bmc.On("POST", kFirst)
        .Respond(BmcResponse{.status = 202,
                             .headers = {{"Location", row.location}}});
    // In the second update, the activation replaces the link.
    for (const auto& targets :
         std::vector<std::vector<std::string>>{{}, {"/a"}}) {
      const UpdateResponse result = Update(targets);
      EXPECT_EQ(result.task_uri, targets.empty() ? row.location : kTask);
      EXPECT_EQ(result.task_id, row.id);
      EXPECT_THAT(Log("update"),
                  AllOf(Contains("Task ID : " + row.id_for_log),
                        Contains("Task ID         : " + row.id_for_log)));
    }
    EXPECT_THAT(LogText(), HasSubstr("[RF-TASK] Task ID: " + row.id_for_log));
    EXPECT_THAT(LogText(), Not(HasSubstr("s3c")));
  }
}

// Indentation would make this document a hundred times as long.
TEST_F(TaskMonitorTest, LogsDeeplyNestedTaskWithoutIndentation) {
  std::string nested = "1";
  for (int i = 0; i < 900; ++i) nested = R"({"a":)" + nested + "}";
  const std::string task = R"({"TaskState":"Completed","x":)" + nested + "}";
  bmc.On("GET", kTask).Respond(200, task);
  EXPECT_EQ(Update().task_state, "Completed");
  EXPECT_THAT(Log(), Contains("DEBUG [update] cJSON_Print failed, using raw "
                              "body"));
  EXPECT_THAT(Log("update"), Contains("[RF-TASK] Task ID: other Id  Response "
                                      "body: " +
                                      task));
}

}  // namespace
}  // namespace quorvane::test
