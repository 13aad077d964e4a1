// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/bmc_call.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/http_status.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/log_header.h"
#include "tools/quorvane/run/bmc_text.h"
#include "tools/quorvane/worker/library_process.h"

namespace quorvane::tool {
namespace {

class EventCollector : public CallListener {
 public:
  EventCollector(RunLog* log, std::vector<Event>& events)
      : log_(log), events_(events) {}
  void OnRecord(const Record& record) override {
    if (log_ != nullptr) log_->Keep(record);
    Event event = EventFrom(record);
    if (event.kind != EventKind::kOther) events_.push_back(std::move(event));
  }
  void OnTick() override {}

 private:
  RunLog* log_;
  std::vector<Event>& events_;
};

// The last warnings and errors, without repeats, in the order of the log.
std::vector<std::string> LastProblems(const std::vector<Event>& events) {
  constexpr std::size_t kMaxProblems = 5;
  std::vector<std::string> problems;
  for (auto event = events.rbegin();
       event != events.rend() && problems.size() < kMaxProblems; ++event) {
    if (event->level < LogLevel::WARNING) continue;
    const std::string& text = event->text;
    if (std::find(problems.begin(), problems.end(), text) == problems.end()) {
      problems.push_back(text);
    }
  }
  std::reverse(problems.begin(), problems.end());
  return problems;
}

// The error for a BMC that responded to no request.
ToolError Unreachable(const BmcOptions& options, const std::string& reason) {
  return {ExitCode::kUnreachable,
          IsUntrusted(reason)
              ? fmt::format("The certificate of {} is not the expected one, so "
                            "the tool sent no password: {}. Compare the key "
                            "that `quorvane trust` shows with that of the "
                            "server.",
                            options.bmc, reason)
              : fmt::format("No response from {}: {}. Check the address and "
                            "the network, and that the BMC is powered on.",
                            options.bmc, reason)};
}

ToolError Forbidden(const BmcOptions& options, const std::string& subject) {
  return {ExitCode::kFailed,
          fmt::format("{} does not let {} read the {} (HTTP 403). Use an "
                      "account with that privilege.",
                      options.bmc, options.user, subject)};
}

ToolError LoginRefused(const BmcOptions& options) {
  return {ExitCode::kUnreachable,
          fmt::format("{} refused the login of {}. Check the user, the "
                      "password and the privileges of the account.",
                      options.bmc, options.user)};
}

}  // namespace

const InventoryRequest& BmcCall::Connect() {
  if (request_) return *request_;
  InventoryRequest request{.ip = options_.bmc,
                           .username = options_.user,
                           .password = ReadPassword(options_)};
  trust_ = ResolveTrust(options_);
  if (!options_.log.empty()) {
    log_.emplace(options_.log, options_.log_level);
    for (const std::string& message :
         LogHeader(options_, subject_ + " of " + options_.bmc, {}, trust_)) {
      log_->Note(message);
    }
  }
  signals_ = std::make_unique<Signals>(Signals::OnHangup::kStop);
  // Known within seconds, while the library retries for minutes.
  const auto probe = std::get<ProbeResult>(MakeCall(ProbeCall{options_.bmc}));
  if (probe.status == 0) throw Unreachable(options_, probe.reason);
  request_ = std::move(request);
  return *request_;
}

std::vector<Resource> BmcCall::Read(const std::vector<std::string>& uris,
                                    double limit_seconds) {
  const InventoryRequest& request = Connect();
  auto result =
      std::get<ReadResult>(MakeCall(ReadCall{.request = request,
                                             .uris = uris,
                                             .limit_seconds = limit_seconds,
                                             .login = login_}));
  std::vector<Resource> resources;
  resources.reserve(result.resources.size());
  for (ReadResource& one : result.resources) {
    login_.Note(one.uri, one.status);
    if (login_.IsRefused()) throw LoginRefused(options_);
    resources.push_back({.uri = std::move(one.uri),
                         .status = one.status,
                         .body = std::move(one.body),
                         .reason = std::move(one.reason)});
  }
  return resources;
}

WorkerResponse BmcCall::MakeCall(LibraryCall call) {
  EventCollector collector(log_ ? &*log_ : nullptr, events_);
  return ResponseTo(CallLibrary(std::move(call),
                                {.rules = options_.rules, .trust = trust_},
                                *signals_, collector));
}

WorkerResponse BmcCall::ResponseTo(CallResult result) const {
  switch (result.end) {
    case CallResult::End::kInterrupted:
      throw ToolError(ExitCode::kInterrupted,
                      "Interrupted. Nothing was changed on the BMC.");
    case CallResult::End::kTimedOut:  // no limit is set
    case CallResult::End::kDied:
      throw ToolError(
          ExitCode::kFailed,
          fmt::format(
              "The worker process failed: {}. {}", result.reason,
              options_.log.empty()
                  ? "Run the command again with --log FILE and report "
                    "the fault with that log."
                  : "Report the fault with the log " + options_.log + "."));
    case CallResult::End::kResponded:
      break;
  }
  if (const auto* error = std::get_if<WorkerError>(&*result.response)) {
    if (error->is_out_of_memory) {
      throw ToolError(ExitCode::kFailed,
                      fmt::format("Cannot read the {} of {}: {}", subject_,
                                  options_.bmc, error->message));
    }
    if (error->is_login_refused) throw LoginRefused(options_);
    throw Unreachable(options_, error->message);
  }
  return *std::move(result.response);
}

ExitCode BmcCall::PrintFailure() const {
  const auto has_status = [this](long status) {
    return std::any_of(
        events_.begin(), events_.end(), [status](const Event& event) {
          return event.level >= LogLevel::WARNING && event.status == status;
        });
  };
  if (has_status(kHttpUnauthorized)) throw LoginRefused(options_);
  if (has_status(kHttpForbidden)) throw Forbidden(options_, subject_);
  const bool any_response =
      std::any_of(events_.begin(), events_.end(), [](const Event& event) {
        return event.kind == EventKind::kResponseReceived;
      });
  const auto failure =
      std::find_if(events_.rbegin(), events_.rend(), [](const Event& event) {
        return event.kind == EventKind::kRequestFailed;
      });
  if (!any_response && failure != events_.rend()) {
    throw Unreachable(options_, failure->text);
  }
  fmt::print(stderr,
             "quorvane: Cannot read the {} of {}. The library reported:\n",
             subject_, Printable(options_.bmc));
  for (const std::string& problem : LastProblems(events_)) {
    fmt::print(stderr, "  {}\n",
               Wrapped(Excerpt(problem, 400), TerminalColumns(), 4));
  }
  return ExitCode::kFailed;
}

// Enough for a thousand slow resources. After it, the rest is unknown.
constexpr double kReadingSeconds = 300;

BmcReader::BmcReader(const BmcOptions& options, std::string subject)
    : call_(options, std::move(subject)), seconds_left_(kReadingSeconds) {}

std::vector<Resource> BmcReader::Read(const std::vector<std::string>& uris) {
  call_.Connect();
  const auto begin = std::chrono::steady_clock::now();
  std::vector<Resource> resources = call_.Read(uris, seconds_left_);
  seconds_left_ -=
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begin)
          .count();
  return resources;
}

}  // namespace quorvane::tool
