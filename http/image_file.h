// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_HTTP_IMAGE_FILE_H_
#define QUORVANE_HTTP_IMAGE_FILE_H_

#include <curl/curl.h>

#include <cstddef>
#include <string>

#include "support/file.h"

namespace quorvane {

/// A firmware image as libcurl reads it for an upload: streamed, never held,
/// and never answered short. libcurl would take an early end of the file for
/// the end of the request and wait for an answer that cannot come.
///
/// Not libcurl's own reading of a path (curl_mime_filedata), which leaves the
/// descriptor open in child processes and blocks on a FIFO.
class ImageFile {
 public:
  /// Opens `path`; anything but a regular file counts as one that cannot be
  /// opened.
  explicit ImageFile(const std::string& path);

  /// It could not be opened, or reading it failed since.
  [[nodiscard]] bool HasFailed() const { return has_failed_; }
  [[nodiscard]] curl_off_t size() const { return size_; }  ///< Bytes.

  /// CURLOPT_READFUNCTION and CURLOPT_SEEKFUNCTION; `file` is an ImageFile.
  /// The second lets libcurl start again after a redirect.
  /// @{
  static std::size_t Read(char* buffer, std::size_t size, std::size_t count,
                          void* file) noexcept;
  static int Seek(void* file, curl_off_t offset, int origin) noexcept;
  /// @}

 private:
  Descriptor descriptor_;
  curl_off_t size_ = 0;
  curl_off_t left_ = 0;
  bool has_failed_ = true;
};

}  // namespace quorvane

#endif  // QUORVANE_HTTP_IMAGE_FILE_H_
