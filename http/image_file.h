// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_HTTP_IMAGE_FILE_H_
#define QUORVANE_HTTP_IMAGE_FILE_H_

#include <curl/curl.h>

#include <cstddef>
#include <string>

#include "support/file.h"

namespace quorvane {

/// Streams a firmware image to libcurl for an upload. Fails if the file becomes
/// shorter during the upload: libcurl would treat the early end as the end of
/// the request, and wait for a response that cannot arrive.
///
/// Replaces curl_mime_filedata, whose descriptor is inherited by child
/// processes, and which blocks on a FIFO.
class ImageFile {
 public:
  /// Opens `path`, which must be a regular file.
  explicit ImageFile(const std::string& path);

  /// False if the file could not be opened, and after a read error.
  [[nodiscard]] bool IsReadable() const { return is_readable_; }
  [[nodiscard]] curl_off_t size() const { return size_; }  ///< Bytes.

  /// CURLOPT_READFUNCTION and CURLOPT_SEEKFUNCTION; `file` is an ImageFile.
  /// libcurl seeks to send the file again after a redirect.
  /// @{
  static std::size_t Read(char* buffer, std::size_t size, std::size_t count,
                          void* file) noexcept;
  static int Seek(void* file, curl_off_t offset, int origin) noexcept;
  /// @}

 private:
  Descriptor descriptor_;
  curl_off_t size_ = 0;
  curl_off_t remaining_ = 0;
  bool is_readable_ = false;
};

}  // namespace quorvane

#endif  // QUORVANE_HTTP_IMAGE_FILE_H_
