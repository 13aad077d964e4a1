// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>
#include <string>
#include <vector>

#include "config/derived.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "update/helpers.h"
#include "update/phases.h"
#include "update/uri_walk.h"

namespace quorvane {
namespace {

constexpr WalkMessages kMessages{
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

// What is logged is built without the secrets; nothing has to be taken out.
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

  Step Handle(const Response& answer, const UriAttempt& at) {
    const std::string status = std::to_string(answer.status_code);
    run_.result.http_status = answer.status_code;
    LogInfo(kUpdate, "SimpleUpdate HTTP status: " + status);
    if (answer.status_code >= 400 && !answer.body.empty()) {
      LogInfo(kUpdate,
              "SimpleUpdate response body: " + RedactAnswer(answer.body));
    }
    if (answer.status_code == 404) return HandleNotFound(at);
    switch (RuleFor(run_.config.activation_rules, answer.status_code)
                .value_or(ActivationAction::retry_or_fail)) {
      case ActivationAction::check_reboot:
        return Accept(answer, LogTask::kNo, "Update completed immediately");
      case ActivationAction::poll_task:
        return Accept(answer, LogTask::kYes, "Update accepted, task created");
      case ActivationAction::retry_activation:
        return Retry("400", answer);
      case ActivationAction::retry_or_fail:
        return Retry(status, answer);
    }
    return Step::kRetry;
  }

 private:
  // Only an absent action is settled before the rules are asked.
  Step HandleNotFound(const UriAttempt& at) {
    LogWarning(kUpdate,
               "SimpleUpdate returned 404 - action not supported, trying next "
               "URI");
    if (!at.is_last_uri) return Step::kNextUri;
    run_.result.message =
        "SimpleUpdate not supported by this device (HTTP 404)";
    return Step::kDone;
  }

  Step Accept(const Response& answer, LogTask log_task, const char* message) {
    run_.result.accepted = true;
    TrackTask(answer, log_task, run_);
    run_.result.message = message;
    return Step::kDone;
  }

  Step Retry(const std::string& status, const Response& answer) {
    LogWarning(kUpdate, "SimpleUpdate returned " + status + ", retrying");
    run_.result.message = ExtractErrorMessage(answer.body);
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
  const bool ended =
      WalkUris(run.config, uris, kMessages, [&](const UriAttempt& at) {
        Response answer;
        try {
          answer = PostAction(run, at.url, body);
        } catch (const std::runtime_error& failure) {
          LogWarning(kUpdate, "SimpleUpdate URI failed: " + RedactUri(at.uri) +
                                  " (exception: " + failure.what() + ")");
          return Step::kNextUri;
        }
        return update.Handle(answer, at);
      });
  if (!ended && run.result.message.empty()) {
    run.result.message =
        "SimpleUpdate failed after trying all " + count + " URI(s)";
  }
}

}  // namespace

void RunSimpleUpdate(UpdateRun& run) {
  run.ResetResult();
  try {
    TryEachUri(run);
  } catch (const std::runtime_error& failure) {
    run.result.accepted = false;
    run.result.message = std::string("SimpleUpdate failed: ") + failure.what();
  }
}

}  // namespace quorvane
