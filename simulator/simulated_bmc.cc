// SPDX-License-Identifier: Apache-2.0
#include "simulator/simulated_bmc.h"

#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "simulator/machine.h"
#include "simulator/tls_server.h"

namespace quorvane::simulator {

// Shared with the handle a test may keep, so that a script can grow while the
// server answers from it.
struct ScriptedAnswers::State {
  std::mutex mutex;
  std::deque<Reply> replies;
};

class SimulatedBmc::Impl final : public RequestHandler {
 public:
  Impl(Scenario scenario, BmcOptions options)
      : options_(std::move(options)),
        machine_(std::move(scenario), options_.now),
        server_(*this, options_.bind_address, options_.port) {}

  std::optional<Reply> AnswerBeforeBody(
      const RecordedRequest& request) override {
    const std::lock_guard lock(mutex_);
    if (scripts_.contains({request.method, request.path})) return {};
    auto reply = machine_.StrikeBeforeBody(request);
    if (reply) Note(request, *reply, "fault before the body");
    return reply;
  }

  Reply Answer(RecordedRequest request) override {
    const std::lock_guard lock(mutex_);
    const auto scripted = ScriptedReply(request);
    const Machine::Outcome outcome =
        scripted ? Machine::Outcome{*scripted, "scripted"}
                 : machine_.Answer(request);
    Note(std::move(request), outcome.reply, outcome.note);
    return outcome.reply;
  }

  std::shared_ptr<ScriptedAnswers::State> Script(const std::string& method,
                                                 const std::string& path) {
    const std::lock_guard lock(mutex_);
    auto& script = scripts_[{method, path}];
    if (!script) script = std::make_shared<ScriptedAnswers::State>();
    return script;
  }

  template <typename Read>
  auto Locked(Read read) {
    const std::lock_guard lock(mutex_);
    return read(machine_, requests_);
  }

  [[nodiscard]] const BmcOptions& Options() const { return options_; }
  [[nodiscard]] int Port() const { return server_.BoundPort(); }

 private:
  std::optional<Reply> ScriptedReply(const RecordedRequest& request) {
    const auto script = scripts_.find({request.method, request.path});
    if (script == scripts_.end()) return {};
    ScriptedAnswers::State& state = *script->second;
    const std::lock_guard lock(state.mutex);
    if (state.replies.empty()) return {};
    Reply reply = state.replies.front();
    if (state.replies.size() > 1) state.replies.pop_front();
    return reply;
  }

  void Note(RecordedRequest request, const Reply& reply,
            const std::string& note) {
    if (options_.observer) options_.observer({request, reply, note});
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
           std::shared_ptr<ScriptedAnswers::State>>
      scripts_;
  std::deque<RecordedRequest> requests_;
  Machine machine_;
  TlsServer server_;  // last: its threads use all of the above
};

ScriptedAnswers& ScriptedAnswers::Answer(Reply reply) {
  const std::lock_guard lock(state_->mutex);
  state_->replies.clear();
  state_->replies.push_back(std::move(reply));
  return *this;
}

ScriptedAnswers& ScriptedAnswers::Answer(int status, std::string body,
                                         HeaderList headers) {
  return Answer(Reply{.status = status,
                      .body = std::move(body),
                      .headers = std::move(headers)});
}

ScriptedAnswers& ScriptedAnswers::Then(Reply reply) {
  const std::lock_guard lock(state_->mutex);
  state_->replies.push_back(std::move(reply));
  return *this;
}

ScriptedAnswers& ScriptedAnswers::Then(int status, std::string body,
                                       HeaderList headers) {
  return Then(Reply{.status = status,
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

ScriptedAnswers SimulatedBmc::On(const std::string& method,
                                 const std::string& path) {
  return ScriptedAnswers(impl_->Script(method, path));
}

std::vector<RecordedRequest> SimulatedBmc::Requests() const {
  return impl_->Locked([](const Machine&, const auto& requests) {
    return std::vector<RecordedRequest>(requests.begin(), requests.end());
  });
}

void SimulatedBmc::ClearRequests() {
  impl_->Locked([](const Machine&, auto& requests) { requests.clear(); });
}

std::string SimulatedBmc::StoredImageSha256() const {
  return impl_->Locked([](const Machine& machine, const auto&) {
    return machine.StoredImageSha256();
  });
}

std::size_t SimulatedBmc::StoredImageSize() const {
  return impl_->Locked([](const Machine& machine, const auto&) {
    return machine.StoredImageSize();
  });
}

int SimulatedBmc::Restarts() const {
  return impl_->Locked(
      [](const Machine& machine, const auto&) { return machine.Restarts(); });
}

}  // namespace quorvane::simulator
