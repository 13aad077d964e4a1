// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_PUBLISHED_FILE_H_
#define QUORVANE_SIMULATOR_PUBLISHED_FILE_H_

#include <string>

namespace quorvane::simulator {

/// A file for other programs that exists while the object exists. A script may
/// wait for the file, so it appears complete.
class PublishedFile {
 public:
  /// Writes `text` to `path`, and replaces a regular file there. An empty path
  /// means no file.
  /// @param what  Names the file in errors: "address file".
  /// @throws std::runtime_error
  PublishedFile(std::string path, const std::string& text,
                const std::string& what);
  ~PublishedFile();
  PublishedFile(const PublishedFile&) = delete;
  PublishedFile& operator=(const PublishedFile&) = delete;

 private:
  std::string path_;
};

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_PUBLISHED_FILE_H_
