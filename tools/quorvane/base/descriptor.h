// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_DESCRIPTOR_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_DESCRIPTOR_H_

#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace quorvane::tool {

/// Owns an open file descriptor.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept
      : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Close();
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Close(); }

  [[nodiscard]] int get() const { return number_; }
  [[nodiscard]] bool IsOpen() const { return number_ >= 0; }
  void Close() {
    if (number_ >= 0) close(number_);
    number_ = -1;
  }

 private:
  int number_ = -1;
};

/// Writes all bytes, also if a signal interrupts it or a pipe is full.
/// @return False, with errno, if the system rejects a write.
inline bool WriteAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_DESCRIPTOR_H_
