// SPDX-License-Identifier: Apache-2.0
#include "support/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "quorvane/logging.h"

namespace quorvane {

bool Descriptor::Close() noexcept {
  const int fd = std::exchange(fd_, -1);
  return fd < 0 || close(fd) == 0;
}

bool WriteAll(int fd, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool SaveDocument(const std::string& component, const std::string& path,
                  std::string_view text) {
  constexpr mode_t kMode = 0666;  // less the umask, as for any document
  Descriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode));
  if (!file.IsOpen()) {
    LogError(component, "Cannot open output file: " + path);
    return false;
  }
  const bool written = WriteAll(file.get(), text);
  return file.Close() && written;
}

}  // namespace quorvane
