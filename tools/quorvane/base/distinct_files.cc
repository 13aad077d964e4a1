// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/distinct_files.h"

#include <fmt/core.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>
#include <unordered_map>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

// The same for all names of a file. Empty for what several options may name.
std::string IdentityOf(const std::string& path) {
  if (path.empty() || IsOwnStream(path)) return {};
  struct stat found {};
  if (stat(path.c_str(), &found) == 0) {
    return S_ISREG(found.st_mode)
               ? fmt::format("{}:{}", found.st_dev, found.st_ino)
               : std::string();
  }
  // A new file. weakly_canonical() leaves a relative name relative.
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  const fs::path resolved = fs::weakly_canonical(absolute, error);
  return (error ? absolute.lexically_normal() : resolved).string();
}

[[noreturn]] void Reject(const NamedFile& written, const NamedFile& other) {
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot use {} for {}: {} would write to the same file. Use "
                  "another file for {}.",
                  other.path, other.option, written.option, written.option));
}

}  // namespace

void RequireDistinct(const std::vector<NamedFile>& files) {
  std::unordered_map<std::string, const NamedFile*> seen;
  for (const NamedFile& file : files) {
    const std::string identity = IdentityOf(file.path);
    if (identity.empty()) continue;
    const auto [entry, is_new] = seen.emplace(identity, &file);
    if (is_new) continue;
    if (file.is_written) Reject(file, *entry->second);
    if (entry->second->is_written) Reject(*entry->second, file);
  }
}

}  // namespace quorvane::tool
