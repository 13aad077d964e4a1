// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_LOG_FILES_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_LOG_FILES_H_

#include <string>
#include <vector>

namespace quorvane::tool {

/// A file that may be a log.
struct LogFile {
  std::string path = {};
  std::string directory = {};  ///< That the user named instead of it, or empty.
  bool is_expected = false;    ///< It is a log by its extension or the user.
};

/// The files of `paths`, and those in the directories of `paths`, sorted. Each
/// file is there once, under whatever names.
/// @throws ToolError if a directory cannot be read.
std::vector<LogFile> LogFilesOf(const std::vector<std::string>& paths);

/// Whether `path` is a directory.
bool IsDirectory(const std::string& path);

/// The text of a log, or nothing if an unexpected file does not begin like one.
/// @throws ToolError that names the file if it cannot be read, or an expected
/// one contains no record.
std::string TextOfLog(const LogFile& file);

/// What to do about a file that is no log.
std::string NoLogText(const std::string& path);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_LOG_FILES_H_
