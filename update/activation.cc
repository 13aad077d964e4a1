// SPDX-License-Identifier: Apache-2.0
#include <string>

#include "config/derived.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "update/helpers.h"
#include "update/phases.h"
#include "update/uri_walk.h"

namespace quorvane {
namespace {

constexpr WalkWords kWords{.trying = "Trying activation URI: ",
                           .exhausted = "Activation URI exhausted retries: ",
                           .next = "Trying next activation URI"};

std::string ActivationBody(const std::vector<std::string>& targets) {
  const JsonPtr body = NewObject();
  if (!targets.empty()) AddStrings(body.get(), "Targets", targets);
  return PrintJsonUnformatted(body.get());
}

Step Retry(const std::string& status) {
  LogWarning(kUpdate, "Activation returned " + status + ", retrying");
  return Step::kRetry;
}

}  // namespace

bool RunActivation(const HttpClient& client, const UpdateRequest& request,
                   const Config& config, UpdateResponse& result) {
  const std::string count = std::to_string(config.activation_uri.size());
  LogInfo(kUpdate, "Activation -- " + count + " URI(s) to try");
  const std::string body = ActivationBody(request.targets);
  bool succeeded = false;

  // The decision table.
  const auto decide = [&](const Response& answer) {
    switch (RuleFor(config.activation_rules, answer.status_code)
                .value_or(ActivationAction::retry_or_fail)) {
      case ActivationAction::check_reboot:
        result.message = "Activation completed";
        succeeded = true;
        return Step::kDone;
      case ActivationAction::poll_task:
        succeeded =
            FollowTask(client, config, answer, "Activation task: ", result);
        return Step::kDone;
      case ActivationAction::retry_activation:
        return Retry("400");
      case ActivationAction::retry_or_fail:
        return Retry(std::to_string(answer.status_code));
    }
    return Step::kRetry;
  };

  const bool ended = WalkUris(
      config, config.activation_uri, kWords, [&](const UriAttempt& at) {
        const Response answer = AnswerOrNone(
            [&] { return PostAction(client, at.url, body, config); });
        LogInfo(kUpdate, "Activation HTTP status: " +
                             std::to_string(answer.status_code));
        return decide(answer);
      });
  if (!ended) {
    result.message = "Activation failed after trying all " + count + " URI(s)";
  }
  return succeeded;
}

}  // namespace quorvane
