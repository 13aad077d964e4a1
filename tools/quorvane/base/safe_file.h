// SPDX-License-Identifier: Apache-2.0
// Files whose names come from the command line. No other user may redirect
// what the tool writes or change what it reads. Every function throws a
// ToolError that names the file and the remedy.
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_SAFE_FILE_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_SAFE_FILE_H_

#include <string>
#include <string_view>

#include "tools/quorvane/base/descriptor.h"

namespace quorvane::tool {

/// The first line of a regular file that belongs to you or root and that no
/// other user can write to. Prints a warning if others can read it.
/// @param what  What the file holds, e.g. "password", for the messages.
std::string FirstLineOf(const std::string& path, const std::string& what);

/// Checks that only you or root can change the file `path` or replace it: the
/// file, the symbolic links to it resolved, and each folder above it. A path
/// that cannot be resolved passes, since nothing can be read from it.
void RequireTrusted(const std::string& path, const std::string& what);

/// Opens a log for appending: a regular file of your own (a new one has mode
/// 0600) or /dev/null. Does not follow a symbolic link or wait for a FIFO.
/// @return Closed, with errno, when the system refuses.
Descriptor OpenForAppending(const std::string& path);

/// Checks, before any work is done, that `WriteDocument` can write to `path`.
void CheckDocumentPath(const std::string& path);

/// Replaces the file `path` by `text` in one step. A file that exists keeps
/// its mode; a new one gets 0666 less the umask. /dev/null discards the text,
/// /dev/stdout prints it like `EscapedJson`.
void WriteDocument(const std::string& path, std::string_view text);

/// The folder for temporary files: TMPDIR, else /tmp. One in which other users
/// can replace files is rejected.
std::string TemporaryFolder();

/// A new temporary folder that only you can enter (mode 0700).
class PrivateFolder {
 public:
  PrivateFolder();
  ~PrivateFolder();  ///< Removes the folder and what it holds.
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_SAFE_FILE_H_
