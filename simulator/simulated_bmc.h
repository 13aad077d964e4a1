// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_SIMULATED_BMC_H_
#define QUORVANE_SIMULATOR_SIMULATED_BMC_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "simulator/http_message.h"
#include "simulator/scenario.h"

namespace quorvane::simulator {

/// What an observer is told before the answer leaves.
struct Exchange {
  const RecordedRequest& request;
  const BmcResponse& response;
  std::string note;  ///< What the machine did, e.g. "task 1: Running 25%".
};

struct BmcOptions {
  std::string bind_address = "127.0.0.1";
  int port = 0;  ///< 0: any free one.
  /// Bytes of a body kept in the record, and parts dropped beyond: a rehearsal
  /// that runs for days must not keep every image.
  std::size_t max_recorded_body = std::numeric_limits<std::size_t>::max();
  /// Requests kept in the record; the oldest go first.
  std::size_t max_recorded_requests = std::numeric_limits<std::size_t>::max();
  /// Called one exchange at a time, on a server thread.
  std::function<void(const Exchange&)> observer = {};
  /// The clock of steps and absences that are given in seconds.
  std::function<std::chrono::steady_clock::time_point()> now =
      std::chrono::steady_clock::now;
};

/// The answers for one method and path, given in turn; the last one repeats.
class ScriptedResponses {
 public:
  /// Forgets the answers given so far and starts with this one.
  ScriptedResponses& Respond(BmcResponse response);
  ScriptedResponses& Respond(int status, std::string body = {},
                             HeaderList headers = {});
  ScriptedResponses& Then(BmcResponse response);
  ScriptedResponses& Then(int status, std::string body = {},
                          HeaderList headers = {});

 private:
  friend class SimulatedBmc;
  struct State;
  explicit ScriptedResponses(std::shared_ptr<State> state)
      : state_(std::move(state)) {}
  std::shared_ptr<State> state_;
};

/// A BMC that speaks Redfish over HTTPS, in this process. It listens once it is
/// made; its destructor ends connections and joins threads at once. Every
/// member may be called from any thread.
class SimulatedBmc {
 public:
  /// @throws std::runtime_error when the address cannot be bound.
  explicit SimulatedBmc(Scenario scenario = {}, BmcOptions options = {});
  ~SimulatedBmc();
  SimulatedBmc(const SimulatedBmc&) = delete;
  SimulatedBmc& operator=(const SimulatedBmc&) = delete;

  /// "127.0.0.1:PORT", or "[::1]:PORT" for an IPv6 bind address.
  [[nodiscard]] std::string Address() const;
  [[nodiscard]] int Port() const;

  /// Overrides the machine for requests with this method and path (query
  /// aside): no credentials are asked for and no fault of the scenario applies.
  /// Such requests are recorded, but the machine does not see them.
  ScriptedResponses On(const std::string& method, const std::string& path);

  /// Every request whose body arrived whole, and those a fault cut off at the
  /// head, in the order of their arrival.
  [[nodiscard]] std::vector<RecordedRequest> Requests() const;
  void ClearRequests();

  /// Of the image stored last, 64 hexadecimal digits; empty when there is none.
  [[nodiscard]] std::string StoredImageSha256() const;
  [[nodiscard]] std::size_t StoredImageSize() const;

  /// How often the machine went down, by a reset or by itself.
  [[nodiscard]] int Reboots() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_SIMULATED_BMC_H_
