// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "config/rule_for.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "update/phases.h"
#include "update/requests.h"
#include "update/uri_walk.h"

namespace quorvane {
namespace {

constexpr WalkMessages kRebootMessages{
    .trying = "Trying reboot URI: ",
    .exhausted = "Reboot URI exhausted retries: ",
    .next = "Trying next reboot URI"};

std::string ResetBody() {
  const JsonPtr body = NewObject();
  AddString(body.get(), "ResetType", "GracefulRestart");
  return PrintJsonUnformatted(body.get());
}

class Reboot {
 public:
  explicit Reboot(UpdateRun& run) : run_(run) {}

  Step Decide(const Response& response, const UriAttempt& attempt) {
    LogInfo(kUpdate,
            "Reboot HTTP status: " + std::to_string(response.status_code));
    switch (RuleFor(run_.config.reboot_rules, response.status_code)
                .value_or(RebootAction::manual_intervention)) {
      case RebootAction::success:
        run_.result.reboot_performed = true;
        run_.result.message = "Reboot successful";
        return Step::kDone;
      case RebootAction::poll_task:
        run_.result.reboot_performed = true;
        // The reboot has started, whatever the result of its task.
        static_cast<void>(MonitorTaskOf(response, "Reboot task: ", run_));
        return Step::kDone;
      case RebootAction::retry_reboot:
        LogWarning(kUpdate, "Reboot returned 400, retrying");
        return Step::kRetry;
      case RebootAction::manual_intervention:
        return SkipUri(attempt);
    }
    return Step::kRetry;
  }

 private:
  Step SkipUri(const UriAttempt& attempt) {
    run_.result.message = "Reboot failed -- manual intervention required";
    if (attempt.is_last_uri) return Step::kDone;
    LogWarning(kUpdate, "Reboot URI failed: " + RedactUri(attempt.uri) +
                            ", trying next URI");
    return Step::kNextUri;
  }

  UpdateRun& run_;
};

}  // namespace

PhaseResult RunRebootPhase(UpdateRun& run) {
  if (!run.config.reboot_required) {
    LogInfo(kUpdate, "Reboot not required by config");
    return PhaseResult::kSucceeded;
  }
  const std::vector<std::string>& uris = run.config.reboot_uri;
  const std::string count = std::to_string(uris.size());
  LogInfo(kUpdate, "Reboot -- " + count + " URI(s) to try");
  const std::string body = ResetBody();
  Reboot reboot(run);
  const bool has_ended = WalkUris(
      run.config, uris, kRebootMessages, [&](const UriAttempt& attempt) {
        return reboot.Decide(ResponseOrStatusZero([&] {
                               return PostAction(run, attempt.url, body);
                             }),
                             attempt);
      });
  if (!has_ended) {
    run.result.message = "Reboot failed after trying all " + count + " URI(s)";
  }
  return SucceededIf(run.result.reboot_performed);
}

}  // namespace quorvane
