// SPDX-License-Identifier: Apache-2.0
// Sends the library's log records from the worker to the tool, each as one
// frame with its length in front. A record quotes what a BMC sent, so nothing
// inside its text may decide where it ends.
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_RECORD_STREAM_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_RECORD_STREAM_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace quorvane::tool {

/// Maximum length of a record, in bytes. A longer one is cut and marked: a BMC
/// decides how long a response body is.
constexpr std::size_t kMaxRecordBytes = 1U << 20;

/// Makes the standard output and error streams of this process (not their
/// descriptors) send each write as a frame to `descriptor`. The library's
/// logger writes a record to the console in one call (quorvane/logging.h).
/// @throws std::runtime_error when memory runs out.
void SendConsoleAsFrames(int descriptor);

/// Splits a byte stream, which arrives in pieces of any size, into frames.
class FrameReader {
 public:
  using Handler = std::function<void(std::string_view)>;
  explicit FrameReader(Handler handler) : handler_(std::move(handler)) {}

  /// @throws std::runtime_error for a frame that `SendConsoleAsFrames` cannot
  /// have sent.
  void Feed(std::string_view bytes);

 private:
  Handler handler_;
  std::string pending_ = {};
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_RECORD_STREAM_H_
