// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_DOWNLOAD_H_
#define QUORVANE_UPDATE_DOWNLOAD_H_

#include <optional>
#include <string>
#include <string_view>

#include "quorvane/http.h"
#include "support/file.h"
#include "update/update_run.h"

namespace quorvane {

/// A downloaded image in the shared temporary folder, removed when this is.
/// While it lives, its file is locked (flock(2)), so that no other run takes it
/// for a left-over of one that died. Without locks on that file system, no run
/// removes a left-over.
class TemporaryImage {
 public:
  /// Creates the file, readable by its owner alone; a left-over of that name
  /// is removed first.
  /// @return Nothing when that name is not available: another run holds it, it
  ///   is a folder, or another user's file (which root removes, unless it is
  ///   locked).
  static std::optional<TemporaryImage> Create(const std::string& path);

  TemporaryImage(TemporaryImage&&) = default;
  TemporaryImage& operator=(TemporaryImage&&) = delete;
  ~TemporaryImage();

  /// False when not all of it reached the disk.
  [[nodiscard]] bool Write(std::string_view image) const;
  [[nodiscard]] long long size() const;  ///< Bytes; -1: not known.

 private:
  TemporaryImage(std::string path, Descriptor file);

  std::string path_;
  Descriptor file_;
};

/// Where the image of that URI is kept: in the temporary folder, under the last
/// segment of the URI without its query.
ImagePath TemporaryPath(const std::string& image_uri);

/// Downloads `image_uri`, without credentials, to `path`.
/// @return Nothing, with an error in the log, when that failed in any way.
std::optional<TemporaryImage> DownloadImageToTemp(const HttpClient& client,
                                                  const std::string& image_uri,
                                                  const ImagePath& path);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_DOWNLOAD_H_
