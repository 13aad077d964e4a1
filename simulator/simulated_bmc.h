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

struct ssl_ctx_st;  // SSL_CTX of OpenSSL

namespace quorvane::simulator {

/// A request and its response, which is about to be sent.
struct Exchange {
  const RecordedRequest& request;
  const BmcResponse& response;
  std::string note;  ///< What the BMC did, such as "task 1: Running 25%".
  /// Versions that changed, such as "BIOS is now 2.5.0".
  std::vector<std::string> changes = {};
};

/// A key and a self-signed certificate for TLS, which several BMCs may share.
using TlsContext = std::shared_ptr<ssl_ctx_st>;
TlsContext CreateTlsContext();

struct BmcOptions {
  std::string bind_address = "127.0.0.1";
  int port = 0;  ///< 0 selects a free port.
  /// Recorded bytes of a body. The parts of a longer body are not recorded, so
  /// that a BMC that runs for days does not keep every image.
  std::size_t max_recorded_body = std::numeric_limits<std::size_t>::max();
  /// Number of recorded requests; the oldest are dropped.
  std::size_t max_recorded_requests = std::numeric_limits<std::size_t>::max();
  /// Called for one exchange at a time, on a server thread.
  std::function<void(const Exchange&)> observer = {};
  /// The clock for durations in seconds: task steps and reboots.
  std::function<std::chrono::steady_clock::time_point()> now =
      std::chrono::steady_clock::now;
  TlsContext tls = {};  ///< Empty: a new key and certificate.
};

/// The responses for one method and path, sent in order; the last one repeats.
class ScriptedResponses {
 public:
  /// Replaces all responses by this one.
  ScriptedResponses& Respond(BmcResponse response);
  ScriptedResponses& Respond(int status, std::string body = {},
                             HeaderList headers = {});
  /// Appends a response.
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

/// A BMC that speaks Redfish over HTTPS, in this process. The constructor
/// starts to listen; the destructor closes all connections immediately. Every
/// member may be called from any thread.
class SimulatedBmc {
 public:
  /// @throws std::runtime_error if the address cannot be bound.
  explicit SimulatedBmc(Scenario scenario = {}, BmcOptions options = {});
  ~SimulatedBmc();
  SimulatedBmc(const SimulatedBmc&) = delete;
  SimulatedBmc& operator=(const SimulatedBmc&) = delete;

  /// "127.0.0.1:PORT", or "[::1]:PORT" for an IPv6 bind address.
  [[nodiscard]] std::string Address() const;
  [[nodiscard]] int Port() const;

  /// Overrides the scenario for requests with this method and path (the query
  /// is ignored). They need no credentials and no fault applies to them. They
  /// are recorded, but change nothing in the BMC.
  ScriptedResponses On(const std::string& method, const std::string& path);

  /// Requests whose body is complete, and those that a fault ended before the
  /// body, in the order of arrival.
  [[nodiscard]] std::vector<RecordedRequest> Requests() const;
  void ClearRequests();

  /// 64 hexadecimal digits, for the last stored image; empty if there is none.
  [[nodiscard]] std::string StoredImageSha256() const;
  [[nodiscard]] std::size_t StoredImageSize() const;

  /// Number of reboots, by a reset or by itself.
  [[nodiscard]] int Reboots() const;

  /// The version of a member of the firmware inventory, without a request and
  /// independent of faults; empty if there is no such member.
  [[nodiscard]] std::string FirmwareVersion(const std::string& id) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_SIMULATED_BMC_H_
