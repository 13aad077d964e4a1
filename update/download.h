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

/// A downloaded image in the shared temporary directory. The destructor removes
/// the file. The file is locked (flock(2)), so that no other run removes it as
/// the leftover of a crashed run. On a file system without locks, no run
/// removes a leftover.
class TemporaryImage {
 public:
  /// Creates the file, readable only by its owner. Removes a leftover of that
  /// name first.
  /// @return Nothing if the name is not available: another run uses it, it is a
  ///   directory, or it is the file of another user (which root removes, unless
  ///   it is locked).
  static std::optional<TemporaryImage> Create(const std::string& path);

  TemporaryImage(TemporaryImage&&) = default;
  TemporaryImage& operator=(TemporaryImage&&) = delete;
  ~TemporaryImage();

  /// False if a part could not be written.
  [[nodiscard]] bool Write(std::string_view image) const;
  [[nodiscard]] long long size() const;  ///< Bytes; -1: unknown.

 private:
  TemporaryImage(std::string path, Descriptor file);

  std::string path_;
  Descriptor file_;
};

/// The path for the image of a URI: the last segment of the URI, without the
/// query, in the temporary directory.
ImagePath TemporaryPath(const std::string& image_uri);

/// Downloads `image_uri`, without credentials, to `path`.
/// @return Nothing if the download or the write failed, which is logged.
std::optional<TemporaryImage> DownloadImageToTemp(const HttpClient& client,
                                                  const std::string& image_uri,
                                                  const ImagePath& path);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_DOWNLOAD_H_
