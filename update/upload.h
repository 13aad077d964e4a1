// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_UPLOAD_H_
#define QUORVANE_UPDATE_UPLOAD_H_

#include <functional>
#include <optional>
#include <string>

#include "quorvane/config.h"
#include "quorvane/http.h"
#include "quorvane/update.h"
#include "update/uri_walk.h"

namespace quorvane {

/// What an upload phase says.
struct UploadWords {
  const char* phase;  ///< "Multipart upload"; of the opening line
  const char* name;   ///< "Upload"; begins most other lines
  WalkWords walk;
  /// The outcome when the last URI is absent, too.
  std::string (*no_more_uris)(long status_code);
};

/// Sends the image once. Nothing ends the phase; the sender has then said why
/// in the result.
using ImageSender = std::function<std::optional<Response>(const UriAttempt&)>;

/// Both upload phases: they differ in their words and in how the image is sent.
/// `result` must be fresh.
void RunUpload(const UploadWords& words, const std::string& file_path,
               const Config& config, const ImageSender& send,
               UpdateResponse& result);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_UPLOAD_H_
