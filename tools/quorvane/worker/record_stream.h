// SPDX-License-Identifier: Apache-2.0
// How the library's records travel from the child process to the tool: each as
// one frame of known length. A record quotes what a BMC sent, so nothing inside
// its text may decide where it ends.
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_RECORD_STREAM_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_RECORD_STREAM_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace quorvane::tool {

/// Longest record that is sent, in bytes. A longer one is cut and says so: a
/// BMC decides how long a body is, and the tool keeps what it needs of it.
constexpr std::size_t kMaxRecordBytes = 1U << 20;

/// Makes the standard output and error streams of this process (not their
/// descriptors) send each write as a frame to `descriptor`. The library's
/// logger writes a record to the console in one call (quorvane/logging.h).
/// @throws std::runtime_error when memory runs out.
void SendConsoleAsFrames(int descriptor);

/// Cuts bytes that arrive in pieces of any size into frames.
class FrameReader {
 public:
  using Handler = std::function<void(std::string_view)>;
  explicit FrameReader(Handler handler) : handler_(std::move(handler)) {}

  /// @throws std::runtime_error for a frame that the sender cannot have made.
  void Feed(std::string_view bytes);

 private:
  Handler handler_;
  std::string pending_ = {};
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_RECORD_STREAM_H_
