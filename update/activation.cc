// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "config/rule_for.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "update/phases.h"
#include "update/requests.h"
#include "update/uri_walk.h"

namespace quorvane {
namespace {

constexpr WalkMessages kActivationMessages{
    .trying = "Trying activation URI: ",
    .exhausted = "Activation URI exhausted retries: ",
    .next = "Trying next activation URI"};

std::string ActivationBody(const std::vector<std::string>& targets) {
  const JsonPtr body = NewObject();
  if (!targets.empty()) AddStrings(body.get(), "Targets", targets);
  return PrintJsonUnformatted(body.get());
}

class Activation {
 public:
  explicit Activation(UpdateRun& run) : run_(run) {}

  Step Decide(const Response& response) {
    const std::string status = std::to_string(response.status_code);
    LogInfo(kUpdate, "Activation HTTP status: " + status);
    switch (RuleFor(run_.config.activation_rules, response.status_code)
                .value_or(ActivationAction::retry_or_fail)) {
      case ActivationAction::check_reboot:
        run_.result.message = "Activation completed";
        result_ = PhaseResult::kSucceeded;
        return Step::kDone;
      case ActivationAction::poll_task:
        result_ = MonitorTaskOf(response, "Activation task: ", run_);
        return Step::kDone;
      case ActivationAction::retry_activation:
        LogWarning(kUpdate, "Activation returned 400, retrying");
        return Step::kRetry;
      case ActivationAction::retry_or_fail:
        LogWarning(kUpdate, "Activation returned " + status + ", retrying");
        return Step::kRetry;
    }
    return Step::kRetry;
  }

  [[nodiscard]] PhaseResult result() const { return result_; }

 private:
  UpdateRun& run_;
  PhaseResult result_ = PhaseResult::kFailed;
};

}  // namespace

PhaseResult RunActivation(UpdateRun& run) {
  const std::vector<std::string>& uris = run.config.activation_uri;
  const std::string count = std::to_string(uris.size());
  LogInfo(kUpdate, "Activation -- " + count + " URI(s) to try");
  const std::string body = ActivationBody(run.request.targets);
  Activation activation(run);
  const bool has_ended = WalkUris(
      run.config, uris, kActivationMessages, [&](const UriAttempt& attempt) {
        return activation.Decide(ResponseOrStatusZero(
            [&] { return PostAction(run, attempt.url, body); }));
      });
  if (!has_ended) {
    run.result.message =
        "Activation failed after trying all " + count + " URI(s)";
  }
  return activation.result();
}

}  // namespace quorvane
