// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_DISTINCT_FILES_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_DISTINCT_FILES_H_

#include <string>
#include <vector>

namespace quorvane::tool {

/// A file of the command line.
struct NamedFile {
  std::string option;  ///< For messages, e.g. "--log".
  std::string path;    ///< Empty if the option is not given.
  bool is_written = false;
};

/// Checks, before anything is written, that no file of the list that is written
/// is also another one of the list, under any name. Devices and the standard
/// streams may be named several times.
/// @throws ToolError that names both options.
void RequireDistinct(const std::vector<NamedFile>& files);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_DISTINCT_FILES_H_
