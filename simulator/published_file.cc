// SPDX-License-Identifier: Apache-2.0
#include "simulator/published_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace quorvane::simulator {
namespace {

bool WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(fd, text.data(), text.size());
    if (count < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// Creates `path` and writes all of `text` to it. Fails if the name exists,
/// even as a symbolic link: another user may have placed it there.
bool WriteNewFile(const std::string& path, const std::string& text) {
  const int fd =
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  const bool is_written = WriteAll(fd, text);
  const int error = errno;
  const bool is_complete = close(fd) == 0 && is_written;
  if (!is_complete) {
    std::remove(path.c_str());
    if (!is_written) errno = error;
  }
  return is_complete;
}

[[noreturn]] void Fail(const std::string& path, int error,
                       const std::string& what) {
  throw std::runtime_error("cannot write " + path + ": " +
                           std::generic_category().message(error) +
                           ". Choose another " + what + '.');
}

}  // namespace

PublishedFile::PublishedFile(std::string path, const std::string& text,
                             const std::string& what)
    : path_(std::move(path)) {
  if (path_.empty()) return;
  // The rename would replace a device such as /dev/null.
  const auto status = std::filesystem::symlink_status(path_);
  if (exists(status) && !is_regular_file(status)) {
    throw std::runtime_error("cannot replace " + path_ +
                             ": it is not a regular file. Choose another " +
                             what + '.');
  }
  const std::string temporary = path_ + '.' + std::to_string(getpid());
  if (!WriteNewFile(temporary, text)) Fail(temporary, errno, what);
  if (std::rename(temporary.c_str(), path_.c_str()) != 0) {
    const int error = errno;
    std::remove(temporary.c_str());
    Fail(path_, error, what);
  }
}

PublishedFile::~PublishedFile() {
  if (!path_.empty()) std::remove(path_.c_str());
}

}  // namespace quorvane::simulator
