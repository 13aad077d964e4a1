// SPDX-License-Identifier: Apache-2.0
#include "support/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace quorvane {

bool Descriptor::Close() noexcept {
  const int fd = std::exchange(fd_, -1);
  return fd < 0 || close(fd) == 0;
}

WriteSignalBlock::WriteSignalBlock() noexcept {
  sigemptyset(&raised_here_);
  sigaddset(&raised_here_, SIGPIPE);
  sigaddset(&raised_here_, SIGXFSZ);
  pthread_sigmask(SIG_BLOCK, &raised_here_, &previous_mask_);
  // A signal that is already pending belongs to the host process.
  sigset_t pending{};
  sigpending(&pending);
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    if (sigismember(&pending, signal) == 1) sigdelset(&raised_here_, signal);
  }
}

WriteSignalBlock::~WriteSignalBlock() {
  const int error = errno;
  const timespec no_wait{};
  while (sigtimedwait(&raised_here_, nullptr, &no_wait) > 0 || errno == EINTR) {
  }
  pthread_sigmask(SIG_SETMASK, &previous_mask_, nullptr);
  errno = error;
}

std::size_t WriteBytes(int fd, std::string_view text) noexcept {
  std::size_t total = 0;
  while (total < text.size()) {
    const ssize_t written = write(fd, text.data() + total, text.size() - total);
    if (written >= 0) {
      total += static_cast<std::size_t>(written);
    } else if (errno != EINTR) {
      break;
    }
  }
  return total;
}

bool WriteAll(int fd, std::string_view text) noexcept {
  const WriteSignalBlock no_signals;
  return WriteBytes(fd, text) == text.size();
}

// Opening never waits for the reader of a FIFO, and the file is truncated only
// after a check of its type.
Descriptor OpenDocument(const std::string& path) {
  constexpr mode_t kMode = 0666;  // reduced by the umask
  Descriptor file(open(path.c_str(),
                       O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                       kMode));
  if (!file.IsOpen()) return file;
  struct stat found {};
  if (fstat(file.get(), &found) != 0) return Descriptor();
  if (S_ISREG(found.st_mode)) {
    if (ftruncate(file.get(), 0) != 0) return Descriptor();
  } else if (!S_ISCHR(found.st_mode) && !S_ISFIFO(found.st_mode)) {
    return Descriptor();
  }
  fcntl(file.get(), F_SETFL, fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
  return file;
}

}  // namespace quorvane
