// SPDX-License-Identifier: Apache-2.0
#include "update/upload.h"

#include "config/derived.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "update/helpers.h"

namespace quorvane {
namespace {

class Upload {
 public:
  Upload(const UploadWords& words, const Config& config, UpdateResponse& result)
      : words_(words), name_(words.name), config_(config), result_(result) {}

  Step Handle(const Response& answer, const UriAttempt& at) {
    const std::string status = std::to_string(answer.status_code);
    result_.http_status = answer.status_code;
    LogInfo(kUpdate, name_ + " HTTP status: " + status);
    LogInfo(kUpdate, name_ + " response body: " + RedactAnswer(answer.body));
    // Only an absent endpoint is settled before the rules are asked.
    if (answer.status_code == 404 || answer.status_code == 405) {
      return EndpointAbsent(status, at);
    }
    switch (RuleFor(config_.upload_rules, answer.status_code)
                .value_or(UploadAction::retry_with_backoff)) {
      case UploadAction::track_task:
        return Accept(answer);
      case UploadAction::retry_with_fix:
        return Retry(" returned 400, retrying",
                     ExtractErrorMessage(answer.body));
      case UploadAction::split_and_retry:
        return Retry(" returned 413 (too large), retrying",
                     "Payload too large");
      case UploadAction::retry_with_backoff:
        return Retry(" returned " + status + ", retrying with backoff",
                     ExtractErrorMessage(answer.body));
    }
    return Step::kRetry;
  }

 private:
  Step EndpointAbsent(const std::string& status, const UriAttempt& at) {
    if (at.is_last_uri) {
      result_.message = words_.no_more_uris(result_.http_status);
      return Step::kDone;
    }
    LogWarning(kUpdate, name_ + " returned " + status +
                            " - endpoint not available, trying next URI");
    return Step::kNextUri;
  }

  Step Accept(const Response& answer) {
    result_.accepted = true;
    AdoptTask(answer, config_, Telling::kLogged, result_);
    result_.message = name_ + " accepted";
    if (result_.task_uri.empty()) {
      result_.message += " (no task URI in response)";
    }
    return Step::kDone;
  }

  Step Retry(const std::string& told, std::string message) {
    LogWarning(kUpdate, name_ + told);
    result_.message = std::move(message);
    return Step::kRetry;
  }

  const UploadWords& words_;
  const std::string name_;
  const Config& config_;
  UpdateResponse& result_;
};

}  // namespace

void RunUpload(const UploadWords& words, const std::string& file_path,
               const Config& config, const ImageSender& send,
               UpdateResponse& result) {
  const std::string count = std::to_string(config.upload_uri.size());
  LogInfo(kUpdate,
          std::string(words.phase) + " -- " + count + " URI(s) to try");
  LogInfo(kUpdate, "File: " + file_path);
  Upload upload(words, config, result);
  const bool ended = WalkUris(
      config, config.upload_uri, words.walk, [&](const UriAttempt& at) {
        const std::optional<Response> answer = send(at);
        return answer ? upload.Handle(*answer, at) : Step::kDone;
      });
  if (!ended && result.message.empty()) {
    result.message = std::string(words.name) + " failed after trying all " +
                     count + " URI(s)";
  }
}

}  // namespace quorvane
