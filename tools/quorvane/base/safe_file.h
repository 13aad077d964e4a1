// SPDX-License-Identifier: Apache-2.0
// Files that the user names on the command line. Other users must not be able
// to redirect what the tool writes, or change what it reads. Every function
// throws a ToolError that names the file, the reason and the fix.
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_SAFE_FILE_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_SAFE_FILE_H_

#include <string>
#include <string_view>

#include "tools/quorvane/base/descriptor.h"

namespace quorvane::tool {

/// The first line of a regular file that belongs to you or root and that no
/// other user can write to. Prints a warning if others can read it.
/// @param what  What the file contains, e.g. "password", for messages.
std::string FirstLineOf(const std::string& path, const std::string& what);

/// Checks that only you or root can change the file `path` or replace it: the
/// file (with symbolic links resolved) and each directory above it. A path that
/// cannot be resolved passes, because nothing can be read from it.
void RequireTrusted(const std::string& path, const std::string& what);

/// Opens a log for appending: a regular file of your own (a new one has mode
/// 0600) or /dev/null. Does not follow a symbolic link or wait for a FIFO.
/// @return A closed descriptor, with errno, if the system refuses.
Descriptor OpenForAppending(const std::string& path);

/// Checks, before any work is done, that `WriteDocument` can write to `path`.
void CheckDocumentPath(const std::string& path);

/// Holds off other processes that change the document `path` in the same way,
/// until the descriptor is closed.
Descriptor LockDocument(const std::string& path);

struct DocumentOptions {
  /// A new file gets mode 0644, for a service of another user, instead of 0666
  /// minus the umask.
  bool is_for_services = false;
  /// The file is on the disk when `WriteDocument` returns. That takes much
  /// longer than to write it, so not for many files that can be written again.
  bool is_synced = true;
};

/// Replaces the content of the file `path` by `text` in one step. An existing
/// file keeps its mode. /dev/null discards the text, /dev/stdout prints it like
/// `EscapedJson`.
void WriteDocument(const std::string& path, std::string_view text,
                   const DocumentOptions& options = {});

/// Creates a directory for documents, or checks that the existing one is a
/// directory of your own that no other user can write to.
void MakeDocumentDirectory(const std::string& path);

/// The directory for temporary files: TMPDIR, else /tmp. It is rejected if
/// other users can replace files in it.
std::string TemporaryDirectory();

/// A new temporary directory with mode 0700. A process that is killed leaves
/// its directory behind; the next one removes it.
class PrivateDirectory {
 public:
  PrivateDirectory();
  ~PrivateDirectory();  ///< Removes the directory and its content.
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
  Descriptor lock_;  // held while the directory is in use
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_SAFE_FILE_H_
