// SPDX-License-Identifier: Apache-2.0
#include "simulator/simulated_bmc.h"

#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "simulator/redfish_service.h"
#include "simulator/tls_server.h"

namespace quorvane::simulator {

// Shared with the ScriptedResponses that a test keeps, so that a test can add
// responses while the server runs.
struct ScriptedResponses::State {
  std::mutex mutex;
  std::deque<BmcResponse> responses;
};

class SimulatedBmc::Impl final : public RequestHandler {
 public:
  Impl(Scenario scenario, BmcOptions options)
      : options_(std::move(options)),
        service_(std::move(scenario), options_.now),
        server_(*this, options_.bind_address, options_.port,
                options_.tls ? options_.tls : CreateTlsContext()) {}

  std::optional<BmcResponse> RespondBeforeBody(
      const RecordedRequest& request) override {
    const std::lock_guard lock(mutex_);
    if (scripts_.contains({request.method, request.path})) return {};
    auto response = service_.RespondBeforeBody(request);
    if (response) Record(request, {*response, "fault before the body"});
    return response;
  }

  BmcResponse Respond(RecordedRequest request) override {
    const std::lock_guard lock(mutex_);
    const auto scripted = NextScripted(request);
    const RedfishService::Outcome outcome =
        scripted ? RedfishService::Outcome{*scripted, "scripted"}
                 : service_.Respond(request);
    Record(std::move(request), outcome);
    return outcome.response;
  }

  std::shared_ptr<ScriptedResponses::State> Script(const std::string& method,
                                                   const std::string& path) {
    const std::lock_guard lock(mutex_);
    auto& script = scripts_[{method, path}];
    if (!script) script = std::make_shared<ScriptedResponses::State>();
    return script;
  }

  template <typename Read>
  auto Locked(Read read) {
    const std::lock_guard lock(mutex_);
    return read(service_, requests_);
  }

  [[nodiscard]] const BmcOptions& Options() const { return options_; }
  [[nodiscard]] int Port() const { return server_.BoundPort(); }

 private:
  std::optional<BmcResponse> NextScripted(const RecordedRequest& request) {
    const auto script = scripts_.find({request.method, request.path});
    if (script == scripts_.end()) return {};
    ScriptedResponses::State& state = *script->second;
    const std::lock_guard lock(state.mutex);
    if (state.responses.empty()) return {};
    BmcResponse response = state.responses.front();
    if (state.responses.size() > 1) state.responses.pop_front();
    return response;
  }

  void Record(RecordedRequest request, const RedfishService::Outcome& outcome) {
    if (options_.observer) {
      options_.observer(
          {request, outcome.response, outcome.note, outcome.changes});
    }
    if (request.body.size() > options_.max_recorded_body) {
      request.body.resize(options_.max_recorded_body);
      request.body.shrink_to_fit();
      request.parts.clear();
    }
    requests_.push_back(std::move(request));
    if (requests_.size() > options_.max_recorded_requests) {
      requests_.pop_front();
    }
  }

  const BmcOptions options_;
  std::mutex mutex_;
  std::map<std::pair<std::string, std::string>,
           std::shared_ptr<ScriptedResponses::State>>
      scripts_;
  std::deque<RecordedRequest> requests_;
  RedfishService service_;
  TlsServer server_;  // last, because its threads use all of the above
};

TlsContext CreateTlsContext() { return TlsServer::CreateTlsContext(); }

ScriptedResponses& ScriptedResponses::Respond(BmcResponse response) {
  const std::lock_guard lock(state_->mutex);
  state_->responses.clear();
  state_->responses.push_back(std::move(response));
  return *this;
}

ScriptedResponses& ScriptedResponses::Respond(int status, std::string body,
                                              HeaderList headers) {
  return Respond(BmcResponse{.status = status,
                             .body = std::move(body),
                             .headers = std::move(headers)});
}

ScriptedResponses& ScriptedResponses::Then(BmcResponse response) {
  const std::lock_guard lock(state_->mutex);
  state_->responses.push_back(std::move(response));
  return *this;
}

ScriptedResponses& ScriptedResponses::Then(int status, std::string body,
                                           HeaderList headers) {
  return Then(BmcResponse{.status = status,
                          .body = std::move(body),
                          .headers = std::move(headers)});
}

SimulatedBmc::SimulatedBmc(Scenario scenario, BmcOptions options)
    : impl_(std::make_unique<Impl>(std::move(scenario), std::move(options))) {}

SimulatedBmc::~SimulatedBmc() = default;

std::string SimulatedBmc::Address() const {
  const std::string& host = impl_->Options().bind_address;
  const std::string port = std::to_string(Port());
  return host.find(':') == std::string::npos ? host + ':' + port
                                             : '[' + host + "]:" + port;
}

int SimulatedBmc::Port() const { return impl_->Port(); }

ScriptedResponses SimulatedBmc::On(const std::string& method,
                                   const std::string& path) {
  return ScriptedResponses(impl_->Script(method, path));
}

std::vector<RecordedRequest> SimulatedBmc::Requests() const {
  return impl_->Locked([](const RedfishService&, const auto& requests) {
    return std::vector<RecordedRequest>(requests.begin(), requests.end());
  });
}

void SimulatedBmc::ClearRequests() {
  impl_->Locked(
      [](const RedfishService&, auto& requests) { requests.clear(); });
}

std::string SimulatedBmc::StoredImageSha256() const {
  return impl_->Locked([](const RedfishService& service, const auto&) {
    return service.StoredImageSha256();
  });
}

std::size_t SimulatedBmc::StoredImageSize() const {
  return impl_->Locked([](const RedfishService& service, const auto&) {
    return service.StoredImageSize();
  });
}

std::string SimulatedBmc::FirmwareVersion(const std::string& id) const {
  return impl_->Locked([&](const RedfishService& service, const auto&) {
    return service.FirmwareVersion(id);
  });
}

int SimulatedBmc::Reboots() const {
  return impl_->Locked([](const RedfishService& service, const auto&) {
    return service.Reboots();
  });
}

}  // namespace quorvane::simulator
