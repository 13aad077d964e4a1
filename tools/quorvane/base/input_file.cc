// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/input_file.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

#include "logging/redact.h"
#include "tools/quorvane/base/error.h"

namespace quorvane::tool {
namespace {

[[noreturn]] void Reject(const std::string& path, const std::string& what,
                         const std::string& reason, const char* remedy) {
  // The user may have named a URI with a secret by mistake.
  throw ToolError(ExitCode::kUsage,
                  fmt::format("Cannot read the {} {}: {}. {}", what,
                              RedactUri(path), reason, remedy));
}

[[noreturn]] void RejectWithErrno(const std::string& path,
                                  const std::string& what) {
  Reject(path, what, std::generic_category().message(errno),
         "Check its name and mode.");
}

constexpr std::string_view kDescriptors = "/dev/fd/";

// Why a file of this type cannot be read; null for a regular file.
const char* FaultOf(mode_t mode) {
  if (S_ISREG(mode)) return nullptr;
  if (S_ISDIR(mode)) return "it is a directory";
  if (S_ISFIFO(mode)) return "it is a FIFO";
  if (S_ISSOCK(mode)) return "it is a socket";
  return "it is a device";
}

std::string ReadToEnd(int descriptor, const std::string& path,
                      const std::string& what,
                      std::size_t max_bytes = std::string::npos) {
  std::string text;
  std::array<char, 65536> chunk{};
  while (const ssize_t count = read(descriptor, chunk.data(), chunk.size())) {
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) RejectWithErrno(path, what);
    text.append(chunk.data(), static_cast<std::size_t>(count));
    if (text.size() >= max_bytes) break;
  }
  return text.substr(0, max_bytes);
}

}  // namespace

bool IsOwnStream(const std::string& path) {
  return path == kStandardInput || path == "/dev/stdout" ||
         path == "/dev/stderr" || path.rfind(kDescriptors, 0) == 0;
}

Descriptor OpenRegular(const std::string& path, const std::string& what) {
  constexpr const char* kRemedy = "Use a regular file.";
  Descriptor file(
      open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  const int reason = errno;
  struct stat found {};
  // A socket cannot be opened.
  const bool is_known = file.IsOpen() ? fstat(file.get(), &found) == 0
                                      : stat(path.c_str(), &found) == 0;
  const char* fault = is_known ? FaultOf(found.st_mode) : nullptr;
  if (fault != nullptr) Reject(path, what, fault, kRemedy);
  if (!file.IsOpen()) {
    errno = reason;
    RejectWithErrno(path, what);
  }
  return file;
}

std::string ReadRegular(const std::string& path, const std::string& what,
                        std::size_t max_bytes) {
  return ReadToEnd(OpenRegular(path, what).get(), path, what, max_bytes);
}

std::string ReadRegularOrStdin(const std::string& path,
                               const std::string& what) {
  if (path == kStandardInput) return ReadToEnd(STDIN_FILENO, path, what);
  // A process substitution of the shell: a pipe that has a writer.
  if (path.rfind(kDescriptors, 0) == 0) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) RejectWithErrno(path, what);
    return ReadToEnd(file.get(), path, what);
  }
  return ReadRegular(path, what);
}

}  // namespace quorvane::tool
