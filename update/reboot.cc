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

constexpr WalkWords kWords{.trying = "Trying reboot URI: ",
                           .exhausted = "Reboot URI exhausted retries: ",
                           .next = "Trying next reboot URI"};

std::string ResetBody() {
  const JsonPtr body = NewObject();
  AddString(body.get(), "ResetType", "GracefulRestart");
  return PrintJsonUnformatted(body.get());
}

}  // namespace

void RunRebootPhase(const HttpClient& client, const Config& config,
                    UpdateResponse& result) {
  if (!config.reboot_required) {
    LogInfo(kUpdate, "Reboot not required by config");
    return;
  }
  const std::string count = std::to_string(config.reboot_uri.size());
  LogInfo(kUpdate, "Reboot -- " + count + " URI(s) to try");
  const std::string body = ResetBody();

  // The decision table.
  const auto decide = [&](const Response& answer, const UriAttempt& at) {
    switch (RuleFor(config.reboot_rules, answer.status_code)
                .value_or(RebootAction::manual_intervention)) {
      case RebootAction::success:
        result.reboot_performed = true;
        result.message = "Reboot successful";
        return Step::kDone;
      case RebootAction::poll_task:
        result.reboot_performed = true;
        // The restart is under way, however its task ends.
        static_cast<void>(
            FollowTask(client, config, answer, "Reboot task: ", result));
        return Step::kDone;
      case RebootAction::retry_reboot:
        LogWarning(kUpdate, "Reboot returned 400, retrying");
        return Step::kRetry;
      case RebootAction::manual_intervention:
        result.message = "Reboot failed -- manual intervention required";
        if (at.is_last_uri) return Step::kDone;
        LogWarning(kUpdate,
                   "Reboot URI failed: " + at.uri + ", trying next URI");
        return Step::kNextUri;
    }
    return Step::kRetry;
  };

  const bool ended =
      WalkUris(config, config.reboot_uri, kWords, [&](const UriAttempt& at) {
        const Response answer = AnswerOrNone(
            [&] { return PostAction(client, at.url, body, config); });
        LogInfo(kUpdate,
                "Reboot HTTP status: " + std::to_string(answer.status_code));
        return decide(answer, at);
      });
  if (!ended) {
    result.message = "Reboot failed after trying all " + count + " URI(s)";
  }
}

}  // namespace quorvane
