// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>
#include <string>
#include <vector>

#include "config/rule_for.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "update/phases.h"
#include "update/requests.h"
#include "update/response_body.h"
#include "update/tracked_task.h"
#include "update/uri_walk.h"

namespace quorvane {
namespace {

constexpr WalkMessages kSimpleUpdateMessages{
    .trying = "Trying SimpleUpdate URI: ",
    .exhausted = "SimpleUpdate URI exhausted retries: ",
    .next = "Trying next SimpleUpdate URI"};

// The action's parameters (DSP2046, UpdateService, SimpleUpdate).
JsonPtr SimpleUpdateBody(const UpdateRequest& request) {
  JsonPtr body = NewObject();
  AddString(body.get(), "ImageURI", request.image_uri);
  if (!request.targets.empty()) {
    AddStrings(body.get(), "Targets", request.targets);
  }
  if (!request.share_username.empty()) {
    AddString(body.get(), "Username", request.share_username);
  }
  if (!request.share_password.empty()) {
    AddString(body.get(), "Password", request.share_password);
  }
  AddBool(body.get(), "VerifyRemoteServerCertificate",
          request.verify_remote_server_certificate);
  return body;
}

// Builds the logged payload without the secrets. Nothing has to be removed from
// a finished text.
void LogPayload(const UpdateRequest& request) {
  UpdateRequest logged;
  logged.image_uri = RedactUri(request.image_uri);
  for (const std::string& target : request.targets) {
    logged.targets.push_back(RedactUri(target));
  }
  logged.share_username = request.share_username;
  if (!request.share_password.empty()) logged.share_password = kRedacted;
  logged.verify_remote_server_certificate =
      request.verify_remote_server_certificate;
  LogInfo(kUpdate, "SimpleUpdate JSON payload:\n" +
                       PrintJson(SimpleUpdateBody(logged).get()));
}

class SimpleUpdate {
 public:
  explicit SimpleUpdate(UpdateRun& run) : run_(run) {}

  Step Decide(const Response& response, const UriAttempt& attempt) {
    const std::string status = std::to_string(response.status_code);
    run_.result.http_status = response.status_code;
    LogInfo(kUpdate, "SimpleUpdate HTTP status: " + status);
    if (response.status_code >= 400 && !response.body.empty()) {
      LogInfo(kUpdate,
              "SimpleUpdate response body: " + RedactResponse(response.body));
    }
    if (response.status_code == 404) return HandleNotFound(attempt);
    switch (RuleFor(run_.config.activation_rules, response.status_code)
                .value_or(ActivationAction::retry_or_fail)) {
      case ActivationAction::check_reboot:
        return Accept(response, LogTask::kNo, "Update completed immediately");
      case ActivationAction::poll_task:
        return Accept(response, LogTask::kYes, "Update accepted, task created");
      case ActivationAction::retry_activation:
        return Retry("SimpleUpdate returned 400, retrying", response);
      case ActivationAction::retry_or_fail:
        return Retry("SimpleUpdate returned " + status + ", retrying",
                     response);
    }
    return Step::kRetry;
  }

 private:
  // No rule can change what a 404 means.
  Step HandleNotFound(const UriAttempt& attempt) {
    LogWarning(kUpdate,
               "SimpleUpdate returned 404 - action not supported, trying next "
               "URI");
    if (!attempt.is_last_uri) return Step::kNextUri;
    run_.result.message =
        "SimpleUpdate not supported by this device (HTTP 404)";
    return Step::kDone;
  }

  Step Accept(const Response& response, LogTask log_task, const char* message) {
    run_.result.accepted = true;
    TrackTask(response, log_task, run_);
    run_.result.message = message;
    return Step::kDone;
  }

  Step Retry(const std::string& warning, const Response& response) {
    LogWarning(kUpdate, warning);
    run_.result.message = ExtractErrorMessage(response.body);
    return Step::kRetry;
  }

  UpdateRun& run_;
};

void TryEachUri(UpdateRun& run) {
  const std::vector<std::string>& uris = run.config.activation_uri;
  const std::string count = std::to_string(uris.size());
  LogInfo(kUpdate,
          "SimpleUpdate (online share) -- " + count + " URI(s) to try");
  const std::string body =
      PrintJsonUnformatted(SimpleUpdateBody(run.request).get());
  LogPayload(run.request);
  if (run.request.targets.empty()) {
    LogWarning(kUpdate, "SimpleUpdate Targets: EMPTY (no targets provided)");
  }
  SimpleUpdate update(run);
  const bool has_ended = WalkUris(
      run.config, uris, kSimpleUpdateMessages, [&](const UriAttempt& attempt) {
        Response response;
        try {
          response = PostAction(run, attempt.url, body);
        } catch (const std::runtime_error& failure) {
          LogWarning(kUpdate,
                     "SimpleUpdate URI failed: " + RedactUri(attempt.uri) +
                         " (exception: " + failure.what() + ")");
          return Step::kNextUri;
        }
        return update.Decide(response, attempt);
      });
  if (!has_ended && run.result.message.empty()) {
    run.result.message =
        "SimpleUpdate failed after trying all " + count + " URI(s)";
  }
}

}  // namespace

PhaseResult RunSimpleUpdate(UpdateRun& run) {
  run.ResetResult();
  try {
    TryEachUri(run);
  } catch (const std::runtime_error& failure) {
    run.result.accepted = false;
    run.result.message = std::string("SimpleUpdate failed: ") + failure.what();
  }
  return SucceededIf(run.result.accepted);
}

}  // namespace quorvane
