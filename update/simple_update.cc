// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>
#include <string>

#include "config/derived.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "update/helpers.h"
#include "update/phases.h"
#include "update/uri_walk.h"

namespace quorvane {
namespace {

constexpr WalkWords kWords{.trying = "Trying SimpleUpdate URI: ",
                           .exhausted = "SimpleUpdate URI exhausted retries: ",
                           .next = "Trying next SimpleUpdate URI"};

// The action's parameters (DSP2046, UpdateService, SimpleUpdate).
JsonPtr SimpleUpdateBody(const UpdateRequest& request,
                         const std::string& image_uri,
                         const std::string& share_password) {
  JsonPtr body = NewObject();
  AddString(body.get(), "ImageURI", image_uri);
  if (!request.targets.empty()) {
    AddStrings(body.get(), "Targets", request.targets);
  }
  if (!request.share_username.empty()) {
    AddString(body.get(), "Username", request.share_username);
  }
  if (!share_password.empty()) {
    AddString(body.get(), "Password", share_password);
  }
  AddBool(body.get(), "VerifyRemoteServerCertificate",
          request.verify_remote_server_certificate);
  return body;
}

// What is logged is built without the password; nothing has to be taken out.
void LogPayload(const UpdateRequest& request) {
  const char* hidden = request.share_password.empty() ? "" : "<REDACTED>";
  const JsonPtr body =
      SimpleUpdateBody(request, RedactUri(request.image_uri), hidden);
  LogInfo(kUpdate, "SimpleUpdate JSON payload:\n" + PrintJson(body.get()));
}

class SimpleUpdate {
 public:
  SimpleUpdate(const Config& config, UpdateResponse& result)
      : config_(config), result_(result) {}

  Step Handle(const Response& answer, const UriAttempt& at) {
    const std::string status = std::to_string(answer.status_code);
    result_.http_status = answer.status_code;
    LogInfo(kUpdate, "SimpleUpdate HTTP status: " + status);
    if (answer.status_code >= 400 && !answer.body.empty()) {
      LogInfo(kUpdate,
              "SimpleUpdate response body: " + RedactAnswer(answer.body));
    }
    if (answer.status_code == 404) return ActionAbsent(at);
    switch (RuleFor(config_.activation_rules, answer.status_code)
                .value_or(ActivationAction::retry_or_fail)) {
      case ActivationAction::check_reboot:
        return Accept(answer, Telling::kSilent, "Update completed immediately");
      case ActivationAction::poll_task:
        return Accept(answer, Telling::kLogged,
                      "Update accepted, task created");
      case ActivationAction::retry_activation:
        return Retry("400", answer);
      case ActivationAction::retry_or_fail:
        return Retry(status, answer);
    }
    return Step::kRetry;
  }

 private:
  // Only an absent action is settled before the rules are asked.
  Step ActionAbsent(const UriAttempt& at) {
    LogWarning(kUpdate,
               "SimpleUpdate returned 404 - action not supported, trying next "
               "URI");
    if (!at.is_last_uri) return Step::kNextUri;
    result_.message = "SimpleUpdate not supported by this device (HTTP 404)";
    return Step::kDone;
  }

  Step Accept(const Response& answer, Telling telling, const char* message) {
    result_.accepted = true;
    AdoptTask(answer, config_, telling, result_);
    result_.message = message;
    return Step::kDone;
  }

  Step Retry(const std::string& status, const Response& answer) {
    LogWarning(kUpdate, "SimpleUpdate returned " + status + ", retrying");
    result_.message = ExtractErrorMessage(answer.body);
    return Step::kRetry;
  }

  const Config& config_;
  UpdateResponse& result_;
};

void AskEachUri(const HttpClient& client, const UpdateRequest& request,
                const Config& config, UpdateResponse& result) {
  const std::string count = std::to_string(config.activation_uri.size());
  LogInfo(kUpdate,
          "SimpleUpdate (online share) -- " + count + " URI(s) to try");
  const std::string body = PrintJsonUnformatted(
      SimpleUpdateBody(request, request.image_uri, request.share_password)
          .get());
  LogPayload(request);
  if (request.targets.empty()) {
    LogWarning(kUpdate, "SimpleUpdate Targets: EMPTY (no targets provided)");
  }
  SimpleUpdate update(config, result);
  const bool ended = WalkUris(
      config, config.activation_uri, kWords, [&](const UriAttempt& at) {
        Response answer;
        try {
          answer = PostAction(client, at.url, body, config);
        } catch (const std::runtime_error& failure) {
          LogWarning(kUpdate, "SimpleUpdate URI failed: " + at.uri +
                                  " (exception: " + failure.what() + ")");
          return Step::kNextUri;
        }
        return update.Handle(answer, at);
      });
  if (!ended && result.message.empty()) {
    result.message =
        "SimpleUpdate failed after trying all " + count + " URI(s)";
  }
}

}  // namespace

UpdateResponse RunSimpleUpdate(const HttpClient& client,
                               const UpdateRequest& request,
                               const Config& config) {
  UpdateResponse result;
  try {
    AskEachUri(client, request, config, result);
  } catch (const std::runtime_error& failure) {
    result.accepted = false;
    result.message = std::string("SimpleUpdate failed: ") + failure.what();
  }
  return result;
}

}  // namespace quorvane
