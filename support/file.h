// SPDX-License-Identifier: Apache-2.0
// Files. Every descriptor is close-on-exec: a process that the caller starts
// during an update inherits none of them.
#ifndef QUORVANE_SUPPORT_FILE_H_
#define QUORVANE_SUPPORT_FILE_H_

#include <csignal>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace quorvane {

/// Owns a file descriptor; -1: none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Close();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int get() const noexcept { return fd_; }
  [[nodiscard]] bool IsOpen() const noexcept { return fd_ >= 0; }

  /// Closes it now. False if the system reports a delayed write error.
  bool Close() noexcept;

 private:
  int fd_;
};

/// During its lifetime, a failed write on this thread raises no signal: neither
/// SIGPIPE (a pipe has no reader) nor SIGXFSZ (the file reaches the limit of
/// the process, RLIMIT_FSIZE). Both would end the host process. The signal
/// handlers of the host process do not change. Preserves errno.
class WriteSignalBlock {
 public:
  WriteSignalBlock() noexcept;
  ~WriteSignalBlock();
  WriteSignalBlock(const WriteSignalBlock&) = delete;
  WriteSignalBlock& operator=(const WriteSignalBlock&) = delete;

 private:
  sigset_t previous_mask_{};
  sigset_t raised_here_{};
};

/// Writes `text`, and continues after short writes and interruptions. A failed
/// write can raise a signal.
/// @return Number of bytes written; if not all, errno is set.
std::size_t WriteBytes(int fd, std::string_view text) noexcept;

/// Writes all of `text` and raises no signal. False, with errno set, if a part
/// could not be written.
bool WriteAll(int fd, std::string_view text) noexcept;

/// Opens `path` for a document that replaces its content. Creates the file if
/// it is missing, but no directories. Accepts regular files, character devices
/// and pipes that have a reader (/dev/null, /dev/stdout).
/// @return Closed for any other type, and if the file cannot be opened.
Descriptor OpenDocument(const std::string& path);

}  // namespace quorvane

#endif  // QUORVANE_SUPPORT_FILE_H_
