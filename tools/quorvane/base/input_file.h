// SPDX-License-Identifier: Apache-2.0
// Files that the user names to be read. Opening one never waits for a FIFO, and
// nothing is read from a device. Every function throws a ToolError that names
// the file, the reason and the fix.
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_INPUT_FILE_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_INPUT_FILE_H_

#include <cstddef>
#include <string>

#include "tools/quorvane/base/descriptor.h"

namespace quorvane::tool {

constexpr const char* kStandardInput = "/dev/stdin";

/// Whether `path` names an open descriptor of this process, such as
/// /dev/stdout. Another process finds something else under that name.
bool IsOwnStream(const std::string& path);

/// Opens a regular file.
/// @param what  What the file contains, e.g. "log", for messages.
Descriptor OpenRegular(const std::string& path, const std::string& what);

/// The content of a regular file, or its first `max_bytes`.
std::string ReadRegular(const std::string& path, const std::string& what,
                        std::size_t max_bytes = std::string::npos);

/// Likewise, or everything from standard input for /dev/stdin.
std::string ReadRegularOrStdin(const std::string& path,
                               const std::string& what);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_INPUT_FILE_H_
