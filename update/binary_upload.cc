// SPDX-License-Identifier: Apache-2.0
#include <optional>
#include <stdexcept>
#include <string>

#include "config/limits.h"
#include "update/phases.h"
#include "update/upload.h"

namespace quorvane {
namespace {

constexpr UploadMessages kBinaryUploadMessages{
    .start = "Binary upload fallback -- ",
    .status = "Binary upload HTTP status: ",
    .body = "Binary upload response body: ",
    .walk = {.trying = "Trying binary upload URI: ",
             .exhausted = "Binary upload URI exhausted retries: ",
             .next = "Trying next binary upload URI"},
    .no_endpoint =
        [](const std::string& status) {
          return "Binary upload returned " + status +
                 " - endpoint not available, trying next URI";
        },
    .bad_request = "Binary upload returned 400, retrying",
    .too_large = "Binary upload returned 413 (too large), retrying",
    .retry =
        [](const std::string& status) {
          return "Binary upload returned " + status + ", retrying with backoff";
        },
    .accepted = "Binary upload accepted",
    .accepted_only = "Binary upload accepted (no task URI in response)",
    .no_more_uris =
        [](const std::string& /*status*/) {
          return std::string(
              "Binary upload failed: HTTP method not supported - no more URIs "
              "to try");
        },
    .all_failed =
        [](const std::string& count) {
          return "Binary upload failed after trying all " + count + " URI(s)";
        }};

}  // namespace

PhaseResult RunBinaryUpload(const ImagePath& image, UpdateRun& run) {
  const auto send = [&](const UriAttempt& attempt) -> std::optional<Response> {
    const Config& config = run.config;
    try {
      return run.client.post_binary_file(attempt.url, image.path, {},
                                         kImageTimeoutMs, config.username,
                                         config.password, config.auth_type);
    } catch (const std::runtime_error& failure) {
      run.result.message =
          std::string("Binary upload failed: ") + failure.what();
      return std::nullopt;
    }
  };
  return RunUpload(kBinaryUploadMessages, image, send, run);
}

}  // namespace quorvane
