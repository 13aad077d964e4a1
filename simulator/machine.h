// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_MACHINE_H_
#define QUORVANE_SIMULATOR_MACHINE_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulator/scenario.h"
#include "simulator/wire.h"

namespace quorvane::simulator {

/// The machine behind the wire: its resources, tasks and restarts. Not safe on
/// several threads; its owner holds a lock.
class Machine {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;
  using Json = nlohmann::ordered_json;

  struct Outcome {
    Reply reply;
    std::string note = {};  ///< What happened, for a log line; may be empty.
  };

  Machine(Scenario scenario, Clock now);

  /// What the machine answers, the scenario's faults included.
  Outcome Answer(const RecordedRequest& request);

  /// A fault that strikes before the body is read, if there is one.
  std::optional<Reply> StrikeBeforeBody(const RecordedRequest& request);

  [[nodiscard]] const std::string& StoredImageSha256() const {
    return image_sha256_;
  }
  [[nodiscard]] std::size_t StoredImageSize() const { return image_size_; }
  [[nodiscard]] int Restarts() const { return restarts_; }

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  struct Task {
    std::string id;
    std::vector<std::string> targets;
    bool installs = true;  ///< Completion leaves an update to apply.
    std::size_t step = 0;
    int polls_in_step = 0;
    TimePoint step_start;
    bool aborted = false;            ///< Cut off by a reset.
    bool took_machine_down = false;  ///< Restart::by_itself_at was reached.
    bool monitor_is_done = false;    ///< The final answer was given.
  };
  struct CountedFault {
    FaultRule rule;
    int seen = 0;
    int struck = 0;
  };

  // machine.cc: the road of a request, and what changes the machine.
  Outcome Handle(const RecordedRequest& request);
  Outcome Route(const RecordedRequest& request, const std::string& path);
  const FaultRule* Strike(const RecordedRequest& request, bool before_body);
  [[nodiscard]] std::string PhaseOf(const RecordedRequest& request) const;
  [[nodiscard]] bool Authorized(const RecordedRequest& request) const;
  std::optional<Outcome> Absent();
  Outcome Upload(const RecordedRequest& request);
  Outcome StoreImage(const std::string& image,
                     std::vector<std::string> targets);
  Outcome UpdateAction(const RecordedRequest& request);
  [[nodiscard]] std::optional<Outcome> RefuseParameters(
      const Json& image_uri, const std::vector<std::string>& targets) const;
  Outcome ResetSystem(const RecordedRequest& request);
  Outcome Accept(int status, std::vector<std::string> targets, bool installs);
  [[nodiscard]] std::optional<Outcome> Busy() const;
  void RestartNow(bool by_itself);
  void ApplyPending();

  // tasks.cc
  Outcome PollTask(const std::string& id, bool as_monitor);
  [[nodiscard]] TaskStep StepOf(const Task& task) const;
  [[nodiscard]] Json TaskBody(const Task& task) const;
  [[nodiscard]] bool IsStaged(const Task& task) const;
  [[nodiscard]] bool IsRunning(const Task& task) const;
  void AdvanceByClock(Task& task);
  void CountPoll(Task& task);
  void EnterStep(Task& task, std::size_t step);
  void Finish(const Task& task);

  // resources.cc: the documents, read only.
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
  /// Targets of an update that is installed and shows after a restart.
  std::optional<std::vector<std::string>> pending_;
  int restarts_ = 0;
  int absent_requests_ = 0;
  std::optional<TimePoint> absent_until_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_MACHINE_H_
