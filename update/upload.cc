// SPDX-License-Identifier: Apache-2.0
#include "update/upload.h"

#include <utility>
#include <vector>

#include "config/derived.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "update/helpers.h"

namespace quorvane {
namespace {

class Upload {
 public:
  Upload(const UploadMessages& messages, UpdateRun& run)
      : name_(messages.name), no_more_uris_(messages.no_more_uris), run_(run) {}

  Step Handle(const Response& answer, const UriAttempt& at) {
    const std::string status = std::to_string(answer.status_code);
    run_.result.http_status = answer.status_code;
    LogInfo(kUpdate, name_ + " HTTP status: " + status);
    LogInfo(kUpdate, name_ + " response body: " + RedactAnswer(answer.body));
    // Only an absent endpoint is settled before the rules are asked.
    if (answer.status_code == 404 || answer.status_code == 405) {
      return HandleAbsentEndpoint(status, at);
    }
    switch (RuleFor(run_.config.upload_rules, answer.status_code)
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
  Step HandleAbsentEndpoint(const std::string& status, const UriAttempt& at) {
    if (at.is_last_uri) {
      run_.result.message = no_more_uris_(run_.result.http_status);
      return Step::kDone;
    }
    LogWarning(kUpdate, name_ + " returned " + status +
                            " - endpoint not available, trying next URI");
    return Step::kNextUri;
  }

  Step Accept(const Response& answer) {
    run_.result.accepted = true;
    TrackTask(answer, LogTask::kYes, run_);
    run_.result.message = name_ + " accepted";
    if (run_.result.task_uri.empty()) {
      run_.result.message += " (no task URI in response)";
    }
    return Step::kDone;
  }

  Step Retry(const std::string& warning, std::string message) {
    LogWarning(kUpdate, name_ + warning);
    run_.result.message = std::move(message);
    return Step::kRetry;
  }

  const std::string name_;
  std::string (*const no_more_uris_)(long status_code);
  UpdateRun& run_;
};

}  // namespace

void RunUpload(const UploadMessages& messages, const ImagePath& image,
               const ImageSender& send, UpdateRun& run) {
  run.ResetResult();
  const std::vector<std::string>& uris = run.config.upload_uri;
  const std::string count = std::to_string(uris.size());
  LogInfo(kUpdate,
          std::string(messages.phase) + " -- " + count + " URI(s) to try");
  LogInfo(kUpdate, "File: " + image.for_log);
  Upload upload(messages, run);
  const bool ended =
      WalkUris(run.config, uris, messages.walk, [&](const UriAttempt& at) {
        const std::optional<Response> answer = send(at);
        return answer ? upload.Handle(*answer, at) : Step::kDone;
      });
  if (!ended && run.result.message.empty()) {
    run.result.message = std::string(messages.name) +
                         " failed after trying all " + count + " URI(s)";
  }
}

}  // namespace quorvane
