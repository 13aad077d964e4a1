// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/record_stream.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tools/quorvane/base/descriptor.h"

namespace quorvane::tool {
namespace {

using FrameLength = std::uint32_t;  // sender and receiver are one program

bool SendFrame(int descriptor, std::string_view record) {
  std::string cut;
  if (record.size() > kMaxRecordBytes) {
    cut = record.substr(0, kMaxRecordBytes);
    const std::string note =
        fmt::format("... ({} bytes left out)\n", record.size() - cut.size());
    cut.replace(cut.size() - note.size(), note.size(), note);
    record = cut;
  }
  const auto length = static_cast<FrameLength>(record.size());
  std::array<char, sizeof length> header{};
  std::memcpy(header.data(), &length, sizeof length);
  return WriteAll(descriptor, {header.data(), header.size()}) &&
         WriteAll(descriptor, record);
}

// A cookie_write_function_t (fopencookie(3)).
ssize_t WriteFrame(void* cookie, const char* bytes, std::size_t size) noexcept {
  const std::string_view text(bytes, size);
  // The address masking reports each text that looks like an address but is
  // not one. Most URLs contain such a text.
  if (text.rfind("[MaskIP] ", 0) == 0) return static_cast<ssize_t>(size);
  try {
    const int descriptor = *static_cast<int*>(cookie);
    return SendFrame(descriptor, text) ? static_cast<ssize_t>(size) : 0;
  } catch (...) {  // out of memory: this is called from C
    return 0;
  }
}

}  // namespace

void SendConsoleAsFrames(int descriptor) {
  static int cookie;  // the streams exist as long as the process
  cookie = descriptor;
  const cookie_io_functions_t functions{
      .read = nullptr, .write = WriteFrame, .seek = nullptr, .close = nullptr};
  for (std::FILE** console : {&stdout, &stderr}) {
    std::FILE* stream = fopencookie(&cookie, "w", functions);
    // Without a buffer, the stream forwards each fwrite(3) in one piece.
    if (stream == nullptr || setvbuf(stream, nullptr, _IONBF, 0) != 0) {
      throw std::runtime_error("Cannot open a stream for the log: no memory");
    }
    *console = stream;
  }
}

void FrameReader::Feed(std::string_view bytes) {
  pending_ += bytes;
  std::string_view rest = pending_;
  FrameLength length = 0;
  while (rest.size() >= sizeof length) {
    std::memcpy(&length, rest.data(), sizeof length);
    if (length > kMaxRecordBytes) {
      throw std::runtime_error("The worker process sent a broken log record");
    }
    if (rest.size() - sizeof length < length) break;
    handler_(rest.substr(sizeof length, length));
    rest.remove_prefix(sizeof length + length);
  }
  pending_.erase(0, pending_.size() - rest.size());
}

}  // namespace quorvane::tool
