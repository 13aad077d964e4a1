// SPDX-License-Identifier: Apache-2.0
// Files. Every descriptor is close-on-exec, so that nothing of an update leaks
// into a process that the caller starts meanwhile.
#ifndef QUORVANE_SUPPORT_FILE_H_
#define QUORVANE_SUPPORT_FILE_H_

#include <csignal>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace quorvane {

/// Owns a file descriptor; -1 means none.
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

  /// Closes it now. False when the system reports a write that failed late.
  bool Close() noexcept;

 private:
  int fd_;
};

/// While it lives, a write that fails on this thread raises no signal: neither
/// SIGPIPE (the reader of a pipe is gone) nor SIGXFSZ (the file reaches the
/// limit of the process, RLIMIT_FSIZE). Both would end the host process, whose
/// own signal handling stays as it is. Preserves errno.
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

/// Writes `text`, across short writes and interruptions. A failed write may
/// raise a signal.
/// @return How many bytes were written; if not all, errno is set.
std::size_t WriteBytes(int fd, std::string_view text) noexcept;

/// Writes all of `text` and raises no signal. False, with errno set, when not
/// all of it could be written.
bool WriteAll(int fd, std::string_view text) noexcept;

/// Makes `path` hold `text` and nothing else. Directories are not created.
/// Character devices and pipes that have a reader (/dev/null, /dev/stdout) are
/// written to; block devices and pipes without a reader are rejected. A target
/// that is rejected or cannot be opened is logged as an error under
/// `component`.
/// @return Whether all of the text was written.
bool SaveDocument(const std::string& component, const std::string& path,
                  std::string_view text);

}  // namespace quorvane

#endif  // QUORVANE_SUPPORT_FILE_H_
