// SPDX-License-Identifier: Apache-2.0
#include "logging/location.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>

namespace quorvane {
namespace {

constexpr mode_t kDirectoryMode = 0750;

bool IsDirectory(const std::string& path) {
  struct stat found {};
  return stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

bool IsSymlink(const std::string& path) {
  struct stat found {};
  return lstat(path.c_str(), &found) == 0 && S_ISLNK(found.st_mode);
}

// The part of `path` before the last of `separators`.
std::string DirectoryOf(const std::string& path, const char* separators) {
  std::size_t end = path.find_last_of(separators);
  // With a trailing slash, lstat would follow a symbolic link.
  while (end != std::string::npos && end > 0 && path[end - 1] == '/') --end;
  if (end == std::string::npos) return ".";
  if (end > 0) return path.substr(0, end);
  return path[0] == '/' ? "/" : ".";
}

bool MakeDirectory(const std::string& path) {
  return mkdir(path.c_str(), kDirectoryMode) == 0 ||
         (errno == EEXIST && IsDirectory(path));
}

bool MakeDirectories(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string ancestor = path.substr(0, slash);
    if (!IsDirectory(ancestor) && !MakeDirectory(ancestor)) return false;
  }
  return MakeDirectory(path);
}

std::string CheckDirectory(const std::string& directory) {
  if (IsSymlink(directory)) {
    return "[logger] SECURITY: Log directory is a symlink: " + directory;
  }
  struct stat found {};
  const bool exists = stat(directory.c_str(), &found) == 0;
  if (!exists || found.st_uid != 0) {
    return "[logger] SECURITY: Log directory has untrusted owner: " + directory;
  }
  if ((found.st_mode & S_IWOTH) != 0) {
    return "[logger] SECURITY: Log directory has insecure permissions "
           "(untrusted write access): " +
           directory;
  }
  return {};
}

}  // namespace

std::string CheckLogLocation(const std::string& path) {
  const std::string directory = DirectoryOf(path, "/\\");
  if (IsDirectory(directory)) {
    if (std::string error = CheckDirectory(directory); !error.empty()) {
      return error;
    }
  } else if (!MakeDirectories(directory)) {
    return "[logger] Failed to create log directory: " + directory;
  }
  // The kernel does not treat a backslash as a separator, so it may open the
  // file in another directory.
  if (const std::string opened_in = DirectoryOf(path, "/");
      opened_in != directory) {
    if (std::string error = CheckDirectory(opened_in); !error.empty()) {
      return error;
    }
  }
  struct stat target {};
  if (IsSymlink(path) && stat(path.c_str(), &target) == 0) {
    return "[logger] SECURITY: Log file is a symlink: " + path;
  }
  return {};
}

}  // namespace quorvane
