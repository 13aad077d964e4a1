// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/log_files.h"

#include <fmt/core.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/run/records.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

// A link that leads nowhere is included: its log is missing.
bool MayBeLog(const fs::directory_entry& entry) {
  std::error_code unused;
  const fs::file_status status = entry.status(unused);
  return fs::is_regular_file(status) || !fs::exists(status);
}

std::vector<LogFile> FilesIn(const std::string& directory) {
  std::error_code failure;
  std::vector<LogFile> files;
  fs::directory_iterator entry(directory, failure);
  for (; !failure && entry != fs::directory_iterator();
       entry.increment(failure)) {
    if (!MayBeLog(*entry)) continue;
    files.push_back({.path = entry->path().string(),
                     .directory = directory,
                     .is_expected = entry->path().extension() == ".log"});
  }
  if (failure) {
    throw ToolError(
        ExitCode::kUsage,
        fmt::format("Cannot read the directory {}: {}. Check its name "
                    "and mode.",
                    directory, failure.message()));
  }
  std::sort(files.begin(), files.end(),
            [](const LogFile& one, const LogFile& other) {
              return one.path < other.path;
            });
  return files;
}

bool HasRecord(std::string_view text) {
  bool has_record = false;
  ReadRecords(text, [&has_record](const Record&) { has_record = true; });
  return has_record;
}

}  // namespace

bool IsDirectory(const std::string& path) {
  std::error_code unused;
  return fs::is_directory(path, unused);
}

std::vector<LogFile> LogFilesOf(const std::vector<std::string>& paths) {
  std::vector<LogFile> found;
  for (const std::string& path : paths) {
    if (IsDirectory(path)) {
      const std::vector<LogFile> files = FilesIn(path);
      found.insert(found.end(), files.begin(), files.end());
    } else {
      found.push_back({.path = path, .is_expected = true});
    }
  }
  std::vector<LogFile> files;
  std::set<std::pair<dev_t, ino_t>> seen;
  for (LogFile& file : found) {
    struct stat status {};
    if (stat(file.path.c_str(), &status) == 0 &&
        !seen.emplace(status.st_dev, status.st_ino).second) {
      continue;
    }
    files.push_back(std::move(file));
  }
  return files;
}

std::string TextOfLog(const LogFile& file) {
  constexpr std::size_t kStartBytes = 65536;
  // A directory may contain an image.
  if (!file.is_expected &&
      !HasRecord(ReadRegular(file.path, "log", kStartBytes))) {
    return {};
  }
  std::string text = ReadRegularOrStdin(file.path, "log");
  if (text.empty()) {
    throw ToolError(ExitCode::kUsage, "Cannot report on " + file.path +
                                          ": it is empty. The run that was to "
                                          "write it did not begin.");
  }
  return text;
}

std::string NoLogText(const std::string& path) {
  return "Cannot report on " + path +
         ": it is not a Quorvane log. Use the file that --log named, or that "
         "the command printed after \"Log:\".";
}

}  // namespace quorvane::tool
