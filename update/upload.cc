// SPDX-License-Identifier: Apache-2.0
#include "update/upload.h"

#include <utility>
#include <vector>

#include "config/rule_for.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "update/response_body.h"
#include "update/tracked_task.h"

namespace quorvane {
namespace {

class Upload {
 public:
  Upload(const UploadMessages& messages, UpdateRun& run)
      : messages_(messages), run_(run) {}

  Step Decide(const Response& response, const UriAttempt& attempt) {
    const std::string status = std::to_string(response.status_code);
    run_.result.http_status = response.status_code;
    LogInfo(kUpdate, messages_.status + status);
    LogInfo(kUpdate, messages_.body + RedactResponse(response.body));
    // No rule can change what 404 and 405 mean.
    if (response.status_code == 404 || response.status_code == 405) {
      return HandleNoEndpoint(status, attempt);
    }
    switch (RuleFor(run_.config.upload_rules, response.status_code)
                .value_or(UploadAction::retry_with_backoff)) {
      case UploadAction::track_task:
        return Accept(response);
      case UploadAction::retry_with_fix:
        return Retry(messages_.bad_request, ExtractErrorMessage(response.body));
      case UploadAction::split_and_retry:
        return Retry(messages_.too_large, "Payload too large");
      case UploadAction::retry_with_backoff:
        return Retry(messages_.retry(status),
                     ExtractErrorMessage(response.body));
    }
    return Step::kRetry;
  }

 private:
  Step HandleNoEndpoint(const std::string& status, const UriAttempt& attempt) {
    if (attempt.is_last_uri) {
      run_.result.message = messages_.no_more_uris(status);
      return Step::kDone;
    }
    LogWarning(kUpdate, messages_.no_endpoint(status));
    return Step::kNextUri;
  }

  Step Accept(const Response& response) {
    run_.result.accepted = true;
    TrackTask(response, LogTask::kYes, run_);
    run_.result.message = run_.result.task_uri.empty() ? messages_.accepted_only
                                                       : messages_.accepted;
    return Step::kDone;
  }

  Step Retry(const std::string& warning, std::string message) {
    LogWarning(kUpdate, warning);
    run_.result.message = std::move(message);
    return Step::kRetry;
  }

  const UploadMessages& messages_;
  UpdateRun& run_;
};

}  // namespace

PhaseResult RunUpload(const UploadMessages& messages, const ImagePath& image,
                      const ImageSender& send, UpdateRun& run) {
  run.ResetResult();
  const std::vector<std::string>& uris = run.config.upload_uri;
  const std::string count = std::to_string(uris.size());
  LogInfo(kUpdate, messages.start + count + " URI(s) to try");
  LogInfo(kUpdate, "File: " + image.for_log);
  Upload upload(messages, run);
  const bool has_ended =
      WalkUris(run.config, uris, messages.walk, [&](const UriAttempt& attempt) {
        const std::optional<Response> response = send(attempt);
        return response ? upload.Decide(*response, attempt) : Step::kDone;
      });
  if (!has_ended && run.result.message.empty()) {
    run.result.message = messages.all_failed(count);
  }
  return SucceededIf(run.result.accepted);
}

}  // namespace quorvane
