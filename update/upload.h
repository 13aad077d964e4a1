// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_UPLOAD_H_
#define QUORVANE_UPDATE_UPLOAD_H_

#include <functional>
#include <optional>
#include <string>

#include "quorvane/http.h"
#include "update/update_run.h"
#include "update/uri_walk.h"

namespace quorvane {

/// What an upload phase logs.
struct UploadMessages {
  const char* phase;  ///< "Multipart upload"; of the opening line
  const char* name;   ///< "Upload"; begins most other lines
  WalkMessages walk;
  /// The outcome when the last URI is absent, too.
  std::string (*no_more_uris)(long status_code);
};

/// Sends the image once. Nothing ends the phase; the sender has then written
/// the reason into the result.
using ImageSender = std::function<std::optional<Response>(const UriAttempt&)>;

/// Both upload phases: they differ in their messages and in how the image is
/// sent. Starts a new result.
void RunUpload(const UploadMessages& messages, const ImagePath& image,
               const ImageSender& send, UpdateRun& run);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_UPLOAD_H_
