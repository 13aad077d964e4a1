// SPDX-License-Identifier: Apache-2.0
#include "http/image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace quorvane {

ImageFile::ImageFile(const std::string& path)
    // O_NONBLOCK: opening a FIFO must not wait for a writer.
    : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat found {};
  if (!descriptor_.IsOpen() || fstat(descriptor_.get(), &found) != 0 ||
      !S_ISREG(found.st_mode)) {
    return;
  }
  size_ = remaining_ = found.st_size;
  is_readable_ = true;
}

std::size_t ImageFile::Read(char* buffer, std::size_t size, std::size_t count,
                            void* file) noexcept {
  auto& image = *static_cast<ImageFile*>(file);
  const std::size_t requested =
      std::min(size * count, static_cast<std::size_t>(image.remaining_));
  if (requested == 0) return 0;
  ssize_t got = 0;
  do {
    got = read(image.descriptor_.get(), buffer, requested);
  } while (got < 0 && errno == EINTR);
  if (got <= 0) {  // 0: the file is shorter than its announced size
    image.is_readable_ = false;
    return CURL_READFUNC_ABORT;
  }
  image.remaining_ -= got;
  return static_cast<std::size_t>(got);
}

int ImageFile::Seek(void* file, curl_off_t offset, int origin) noexcept {
  auto& image = *static_cast<ImageFile*>(file);
  if (origin != SEEK_SET || offset < 0 || offset > image.size_ ||
      lseek(image.descriptor_.get(), offset, SEEK_SET) != offset) {
    return CURL_SEEKFUNC_FAIL;
  }
  image.remaining_ = image.size_ - offset;
  return CURL_SEEKFUNC_OK;
}

}  // namespace quorvane
