// SPDX-License-Identifier: Apache-2.0
#include "logging/location.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>

namespace quorvane {
namespace {

constexpr mode_t kFolderMode = 0750;

bool IsFolder(const std::string& path) {
  struct stat found {};
  return stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

bool IsSymlink(const std::string& path) {
  struct stat found {};
  return lstat(path.c_str(), &found) == 0 && S_ISLNK(found.st_mode);
}

// What comes before the last of `separators`.
std::string FolderOf(const std::string& path, const char* separators) {
  std::size_t end = path.find_last_of(separators);
  // A trailing slash would make lstat follow a link instead of showing it.
  while (end != std::string::npos && end > 0 && path[end - 1] == '/') --end;
  if (end == std::string::npos) return ".";
  if (end > 0) return path.substr(0, end);
  return path[0] == '/' ? "/" : ".";
}

bool MakeFolder(const std::string& path) {
  return mkdir(path.c_str(), kFolderMode) == 0 ||
         (errno == EEXIST && IsFolder(path));
}

bool MakeFolders(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string ancestor = path.substr(0, slash);
    if (!IsFolder(ancestor) && !MakeFolder(ancestor)) return false;
  }
  return MakeFolder(path);
}

std::string FolderFault(const std::string& folder) {
  if (IsSymlink(folder)) {
    return "[logger] SECURITY: Log directory is a symlink: " + folder;
  }
  struct stat found {};
  const bool known = stat(folder.c_str(), &found) == 0;
  if (!known || found.st_uid != 0) {
    return "[logger] SECURITY: Log directory has untrusted owner: " + folder;
  }
  if ((found.st_mode & S_IWOTH) != 0) {
    return "[logger] SECURITY: Log directory has insecure permissions "
           "(untrusted write access): " +
           folder;
  }
  return {};
}

}  // namespace

std::string LogLocationFault(const std::string& path) {
  const std::string folder = FolderOf(path, "/\\");
  if (IsFolder(folder)) {
    if (std::string fault = FolderFault(folder); !fault.empty()) return fault;
  } else if (!MakeFolders(folder)) {
    return "[logger] Failed to create log directory: " + folder;
  }
  // The system opens a file whose name holds a backslash in another folder.
  if (const std::string opened_in = FolderOf(path, "/"); opened_in != folder) {
    if (std::string fault = FolderFault(opened_in); !fault.empty()) {
      return fault;
    }
  }
  struct stat target {};
  if (IsSymlink(path) && stat(path.c_str(), &target) == 0) {
    return "[logger] SECURITY: Log file is a symlink: " + path;
  }
  return {};
}

}  // namespace quorvane
