// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_UPLOAD_H_
#define QUORVANE_UPDATE_UPLOAD_H_

#include <functional>
#include <optional>
#include <string>

#include "quorvane/http.h"
#include "update/phases.h"
#include "update/update_run.h"
#include "update/uri_walk.h"

namespace quorvane {

/// The texts of an upload phase. A function inserts an HTTP status, or the
/// number of URIs.
struct UploadMessages {
  using Format = std::string (*)(const std::string& number);

  const char* start;   ///< Before the number of URIs.
  const char* status;  ///< Before the HTTP status.
  const char* body;    ///< Before the response body.
  WalkMessages walk;
  Format no_endpoint;         ///< 404 or 405, and there is another URI.
  const char* bad_request;    ///< Rule `retry_with_fix`.
  const char* too_large;      ///< Rule `split_and_retry`.
  Format retry;               ///< Rule `retry_with_backoff`, or no rule.
  const char* accepted;       ///< Result.
  const char* accepted_only;  ///< Result without a task.
  Format no_more_uris;        ///< Result: 404 or 405 from the last URI.
  Format all_failed;          ///< Result without an error of the BMC.
};

/// Sends the image once. Returns nothing to end the phase; it has then set the
/// message of the result.
using ImageSender = std::function<std::optional<Response>(const UriAttempt&)>;

/// Both upload phases: they differ in their messages, and in how they send the
/// image. Starts a new result.
PhaseResult RunUpload(const UploadMessages& messages, const ImagePath& image,
                      const ImageSender& send, UpdateRun& run);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_UPLOAD_H_
