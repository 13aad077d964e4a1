// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "config/derived.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "update/helpers.h"
#include "update/phases.h"
#include "update/uri_walk.h"

namespace quorvane {
namespace {

constexpr WalkMessages kMessages{
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

  Step Handle(const Response& answer) {
    const std::string status = std::to_string(answer.status_code);
    LogInfo(kUpdate, "Activation HTTP status: " + status);
    switch (RuleFor(run_.config.activation_rules, answer.status_code)
                .value_or(ActivationAction::retry_or_fail)) {
      case ActivationAction::check_reboot:
        run_.result.message = "Activation completed";
        has_succeeded_ = true;
        return Step::kDone;
      case ActivationAction::poll_task:
        has_succeeded_ = MonitorTaskOf(answer, "Activation task: ", run_);
        return Step::kDone;
      case ActivationAction::retry_activation:
        return Retry("400");
      case ActivationAction::retry_or_fail:
        return Retry(status);
    }
    return Step::kRetry;
  }

  [[nodiscard]] bool HasSucceeded() const { return has_succeeded_; }

 private:
  static Step Retry(const std::string& status) {
    LogWarning(kUpdate, "Activation returned " + status + ", retrying");
    return Step::kRetry;
  }

  UpdateRun& run_;
  bool has_succeeded_ = false;
};

}  // namespace

bool RunActivation(UpdateRun& run) {
  const std::vector<std::string>& uris = run.config.activation_uri;
  const std::string count = std::to_string(uris.size());
  LogInfo(kUpdate, "Activation -- " + count + " URI(s) to try");
  const std::string body = ActivationBody(run.request.targets);
  Activation activation(run);
  const bool ended =
      WalkUris(run.config, uris, kMessages, [&](const UriAttempt& at) {
        return activation.Handle(
            AnswerOrNone([&] { return PostAction(run, at.url, body); }));
      });
  if (!ended) {
    run.result.message =
        "Activation failed after trying all " + count + " URI(s)";
  }
  return activation.HasSucceeded();
}

}  // namespace quorvane
