// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/private_rules.h"

#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "quorvane/config.h"
#include "tools/quorvane/base/error.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLibrary = "libQuorvaneLib.so.1";
constexpr const char* kRules = "brindle.config.json";

}  // namespace

PrivateRules::PrivateRules(const std::string& rules_file) {
  const fs::path directory = directory_.path();
  std::error_code error;
  const fs::path library = fs::canonical(
      fs::path(ResolveConfigPath()).parent_path() / kLibrary, error);
  const fs::path rules = error ? fs::path() : fs::canonical(rules_file, error);
  if (!error) fs::create_symlink(library, directory / kLibrary, error);
  if (!error) {
    // A symbolic link may have changed since the first check. The resolved path
    // contains none.
    RequireTrusted(rules.string(), "rules");
    fs::create_symlink(rules, directory / kRules, error);
  }
  if (!error) return;
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot use the rules file {}: {}. Check its name "
                  "and mode.",
                  rules_file, error.message()));
}

std::string PrivateRules::LoaderPath() const {
  const char* current = getenv("LD_LIBRARY_PATH");
  if (current == nullptr || *current == '\0') return directory();
  return directory() + ":" + current;
}

}  // namespace quorvane::tool
