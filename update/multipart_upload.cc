// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "config/limits.h"
#include "quorvane/logging.h"
#include "support/json.h"
#include "update/phases.h"
#include "update/requests.h"
#include "update/upload.h"

namespace quorvane {
namespace {

constexpr UploadMessages kMultipartUploadMessages{
    .start = "Multipart upload -- ",
    .status = "Upload HTTP status: ",
    .body = "Upload response body: ",
    .walk = {.trying = "Trying upload URI: ",
             .exhausted = "Upload URI exhausted retries: ",
             .next = "Trying next upload URI"},
    .no_endpoint =
        [](const std::string& status) {
          return "Upload returned " + status +
                 " - endpoint not available, trying next URI";
        },
    .bad_request = "Upload returned 400, retrying",
    .too_large = "Upload returned 413 (too large), retrying",
    .retry =
        [](const std::string& status) {
          return "Upload returned " + status + ", retrying with backoff";
        },
    .accepted = "Upload accepted",
    .accepted_only = "Upload accepted (no task URI in response)",
    .no_more_uris =
        [](const std::string& status) {
          return "Upload failed: HTTP " + status + " - no more URIs to try.";
        },
    .all_failed =
        [](const std::string& count) {
          return "Upload failed after trying all " + count + " URI(s)";
        }};

// A MultipartUpload endpoint always requires parameters, and gets the request
// to apply the image at the next reset (DSP0266, "Operation apply time"). Other
// endpoints get the targets, if there are any.
std::string UpdateParameters(const std::string& uri,
                             const std::vector<std::string>& targets) {
  const bool is_multipart_upload =
      uri.find("MultipartUpload") != std::string::npos;
  if (!is_multipart_upload && targets.empty()) return {};
  const JsonPtr parameters = NewObject();
  AddStrings(parameters.get(), "Targets", targets);
  if (is_multipart_upload) {
    LogInfo(kUpdate, "Including UpdateParameters for Korvo MultipartUpload");
    AddString(parameters.get(), "@Redfish.OperationApplyTime", "OnReset");
  } else {
    LogInfo(kUpdate,
            "Including UpdateParameters with targets for upload endpoint");
  }
  return PrintJsonUnformatted(parameters.get());
}

}  // namespace

PhaseResult RunMultipartUpload(const ImagePath& image, UpdateRun& run) {
  const auto send = [&](const UriAttempt& attempt) {
    const Config& config = run.config;
    const std::string parameters =
        UpdateParameters(attempt.uri, run.request.targets);
    return ResponseOrStatusZero([&] {
      return run.client.post_multipart(
          attempt.url, image.path, "UpdateFile", {}, kImageTimeoutMs,
          config.username, config.password, config.auth_type, parameters);
    });
  };
  return RunUpload(kMultipartUploadMessages, image, send, run);
}

}  // namespace quorvane
