// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_REDFISH_SERVICE_H_
#define QUORVANE_SIMULATOR_REDFISH_SERVICE_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/http_message.h"
#include "simulator/json.h"
#include "simulator/scenario.h"

namespace quorvane::simulator {

/// The Redfish service of the simulated BMC: resources, tasks and reboots. Not
/// thread-safe: the owner holds a lock.
class RedfishService {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  struct Outcome {
    BmcResponse response;
    std::string note = {};  ///< What the BMC did, for a log line; may be empty.
    /// Versions that changed, such as "BIOS is now 2.5.0".
    std::vector<std::string> changes = {};
  };

  RedfishService(Scenario scenario, Clock now);

  /// The response to a request, including the faults of the scenario.
  Outcome Respond(const RecordedRequest& request);

  /// The response of a fault rule that applies before the body is read, if any.
  std::optional<BmcResponse> RespondBeforeBody(const RecordedRequest& request);

  [[nodiscard]] const std::string& StoredImageSha256() const {
    return image_sha256_;
  }
  [[nodiscard]] std::size_t StoredImageSize() const { return image_size_; }
  [[nodiscard]] int Reboots() const { return reboots_; }

  /// The version that a member of the firmware inventory really has, whatever a
  /// fault makes of it; empty if there is no such member.
  [[nodiscard]] std::string FirmwareVersion(const std::string& id) const;

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  struct Task {
    std::string id;
    std::vector<std::string> targets;
    bool installs = true;  ///< Completion installs the image.
    std::size_t step = 0;
    int polls_in_step = 0;
    TimePoint step_start;
    bool is_aborted = false;     ///< By a reset.
    bool caused_reboot = false;  ///< RebootBehavior::by_itself_at was reached.
    bool is_monitor_finished = false;  ///< The final response was sent.
  };
  struct CountedFault {
    FaultRule rule;
    int matched = 0;
    int applied = 0;
  };

  /// A finished update whose versions are not yet visible.
  struct DelayedChange {
    int reads_left = 0;
    std::optional<TimePoint> due = {};  ///< Unset until the BMC responds.
  };

  // redfish_service.cc: handling of requests, and changes of the state.
  Outcome RespondWithFaults(const RecordedRequest& request);
  Outcome Handle(const RecordedRequest& request);
  Outcome Route(const RecordedRequest& request, const std::string& path);
  const FaultRule* MatchFault(const RecordedRequest& request, bool before_body);
  [[nodiscard]] std::string PhaseOf(const RecordedRequest& request) const;
  [[nodiscard]] bool IsAuthorized(const RecordedRequest& request) const;
  std::optional<Outcome> RespondWhileRebooting();
  Outcome Upload(const RecordedRequest& request);
  Outcome StoreImage(const std::string& image,
                     std::vector<std::string> targets);
  Outcome UpdateAction(const RecordedRequest& request);
  [[nodiscard]] std::optional<Outcome> RejectParameters(
      const Json& image_uri, const std::vector<std::string>& targets) const;
  Outcome ResetSystem(const RecordedRequest& request);
  Outcome Accept(int status, std::vector<std::string> targets, bool installs);
  [[nodiscard]] std::optional<Outcome> RespondIfBusy() const;
  [[nodiscard]] std::optional<Outcome> RespondIfDisabled() const;
  void Reboot(bool by_itself);
  void StartVersionChange();
  void AdvanceVersionChange(const RecordedRequest& request,
                            const std::string& path);
  void ApplyPendingUpdate();

  // tasks.cc: progress of tasks.
  Outcome PollTask(const std::string& id, bool as_monitor);
  [[nodiscard]] TaskStep StepOf(const Task& task) const;
  [[nodiscard]] Json TaskBody(const Task& task) const;
  [[nodiscard]] bool IsStaged(const Task& task) const;
  [[nodiscard]] bool IsRunning(const Task& task) const;
  void AdvanceByClock(Task& task);
  void CountPoll(Task& task);
  void EnterStep(Task& task, std::size_t step);
  void FinishUpdate(const Task& task);

  // resources.cc: the resources that a client can read.
  [[nodiscard]] std::optional<Json> Resource(const std::string& path,
                                             const std::string& query) const;
  [[nodiscard]] Json UpdateService() const;
  [[nodiscard]] Json System() const;
  [[nodiscard]] std::optional<Json> ChassisResource(
      const std::string& path) const;

  Scenario scenario_;
  Clock now_;
  std::vector<CountedFault> faults_;
  std::map<std::string, Task> tasks_;
  int next_task_ = 1;
  bool power_is_on_ = true;
  std::size_t image_size_ = 0;
  std::string image_sha256_;
  /// Targets of an installed update that is not yet visible.
  std::optional<std::vector<std::string>> pending_targets_;
  std::optional<DelayedChange> change_;
  std::vector<std::string> changes_;  ///< By the current request.
  int reboots_ = 0;
  int unavailable_requests_ = 0;
  std::optional<TimePoint> unavailable_until_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_REDFISH_SERVICE_H_
