// SPDX-License-Identifier: Apache-2.0
// The progress of tasks: the current step, and the response to a poll.
#include <algorithm>
#include <array>
#include <string_view>

#include "simulator/redfish.h"
#include "simulator/redfish_service.h"

namespace quorvane::simulator {
namespace {

// TaskState values of a task that has ended (Task schema). "Interrupted" is one
// of them because the simulator does not resume such a task.
constexpr std::array<std::string_view, 5> kEndStates = {
    "Completed", "Exception", "Cancelled", "Killed", "Interrupted"};

bool IsEnd(const std::string& state) {
  return std::find(kEndStates.begin(), kEndStates.end(), state) !=
         kEndStates.end();
}

Json Message(const TaskStep& step) {
  return {{"@odata.type", "#Message.v1_1_2.Message"},
          {"MessageId", step.message_id},
          {"Message", step.message},
          {"MessageArgs", Json::array()},
          {"Severity", step.health}};
}

}  // namespace

RedfishService::Outcome RedfishService::PollTask(const std::string& id,
                                                 bool as_monitor) {
  const auto found = tasks_.find(id);
  if (found == tasks_.end() ||
      (as_monitor && found->second.is_monitor_finished)) {
    return {ErrorResponse(404, "ResourceMissingAtURI",
                          "There is no task " + id + '.',
                          "List the existing tasks: " + std::string(kTasks)),
            "no such task"};
  }
  Task& task = found->second;
  const TaskStep shown = StepOf(task);
  const Json body = TaskBody(task);
  std::string note = "task " + id + ": " + shown.state;
  if (shown.percent >= 0) note += ' ' + std::to_string(shown.percent) + '%';

  BmcResponse response = JsonResponse(200, body);
  if (as_monitor && IsEnd(shown.state)) {
    task.is_monitor_finished = true;
    if (scenario_.task.monitor_final_status == 204) response = {.status = 204};
  } else if (as_monitor) {
    response =
        JsonResponse(202, body, {{"Location", MemberPath(kTaskMonitors, id)}});
  }
  CountPoll(task);
  const auto& reboot_at = scenario_.reboot.by_itself_at;
  if (reboot_at && shown.percent >= *reboot_at && !task.caused_reboot) {
    task.caused_reboot = true;
    Reboot(/*by_itself=*/true);  // may delete the task
    note += ", then the BMC reboots by itself";
  }
  const auto& end = scenario_.task.disappears_at;
  const auto left = tasks_.find(id);  // a reboot may have deleted it
  if (end && shown.percent >= *end && left != tasks_.end()) {
    FinishUpdate(left->second);
    tasks_.erase(left);
    note += ", then the task disappears";
  }
  return {std::move(response), std::move(note)};
}

TaskStep RedfishService::StepOf(const Task& task) const {
  TaskStep step = scenario_.task.steps.at(task.step);
  if (task.is_aborted) {
    step.state = "Exception";
    step.health = "Critical";
    step.message_id = "Update.1.0.ApplyFailed";
    step.message = "A reset aborted the update.";
  }
  return step;
}

Json RedfishService::TaskBody(const Task& task) const {
  const TaskStep current = StepOf(task);
  Json body = {{"@odata.id", MemberPath(kTasks, task.id)},
               {"@odata.type", "#Task.v1_4_3.Task"},
               {"Id", task.id},
               {"Name", "Task " + task.id},
               {"TaskState", current.state},
               {"TaskStatus", current.health},
               {"StartTime", "2024-01-01T00:00:00Z"},
               {"TaskMonitor", MemberPath(kTaskMonitors, task.id)}};
  if (current.percent >= 0) body["PercentComplete"] = current.percent;
  if (IsEnd(current.state)) body["EndTime"] = "2024-01-01T00:05:00Z";
  Json messages = Json::array();
  for (std::size_t i = 0; i <= task.step; ++i) {
    const TaskStep& step =
        i == task.step ? current : scenario_.task.steps.at(i);
    if (!step.message_id.empty()) messages.push_back(Message(step));
  }
  body["Messages"] = std::move(messages);
  return body;
}

bool RedfishService::IsStaged(const Task& task) const {
  return !task.is_aborted && scenario_.task.steps.at(task.step).until_reboot;
}

bool RedfishService::IsRunning(const Task& task) const {
  return !IsStaged(task) && !IsEnd(StepOf(task).state);
}

void RedfishService::AdvanceByClock(Task& task) {
  while (task.step + 1 < scenario_.task.steps.size() && IsRunning(task)) {
    const TaskStep& step = scenario_.task.steps.at(task.step);
    const auto length = std::chrono::duration_cast<TimePoint::duration>(
        std::chrono::duration<double>(step.seconds));
    if (step.polls > 0 || now_() < task.step_start + length) return;
    const TimePoint next_start = task.step_start + length;
    EnterStep(task, task.step + 1);
    task.step_start = next_start;  // a late poll must not delay later steps
  }
}

void RedfishService::CountPoll(Task& task) {
  const TaskStep& step = scenario_.task.steps.at(task.step);
  if (step.polls <= 0 || !IsRunning(task)) return;
  if (++task.polls_in_step >= step.polls &&
      task.step + 1 < scenario_.task.steps.size()) {
    EnterStep(task, task.step + 1);
  }
}

void RedfishService::EnterStep(Task& task, std::size_t step) {
  task.step = step;
  task.polls_in_step = 0;
  task.step_start = now_();
  if (StepOf(task).state == "Completed") FinishUpdate(task);
}

void RedfishService::FinishUpdate(const Task& task) {
  if (!task.installs || scenario_.version_change.at == "never") return;
  pending_targets_ = task.targets;
  change_.reset();
  if (scenario_.version_change.at == "completion") StartVersionChange();
}

}  // namespace quorvane::simulator
