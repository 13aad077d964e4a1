// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/private_rules.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "quorvane/config.h"
#include "tools/quorvane/text.h"
#include "tools/quorvane/tool.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLibrary = "libQuorvaneLib.so.1";
constexpr const char* kRules = "brindle.config.json";

std::string MakePrivateFolder() {
  std::error_code unknown;
  fs::path place = fs::temp_directory_path(unknown);
  if (unknown) place = "/tmp";
  std::string pattern = (place / "quorvane-rules-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw ToolError(
        ExitCode::kUsage,
        fmt::format("Cannot make a private folder in {} ({}); set TMPDIR to a "
                    "folder that you may write to.",
                    place.string(), std::generic_category().message(errno)));
  }
  return pattern;
}

}  // namespace

PrivateRules::PrivateRules(const std::string& rules_file)
    : folder_(MakePrivateFolder()) {
  std::error_code error;
  const fs::path library = fs::canonical(
      fs::path(ResolveConfigPath()).parent_path() / kLibrary, error);
  const fs::path rules = error ? fs::path() : fs::canonical(rules_file, error);
  if (!error) {
    fs::create_symlink(library, fs::path(folder_) / kLibrary, error);
  }
  if (!error) fs::create_symlink(rules, fs::path(folder_) / kRules, error);
  if (!error) return;
  std::error_code unused;
  fs::remove_all(folder_, unused);
  throw ToolError(ExitCode::kUsage, fmt::format("Cannot put {} to work ({}).",
                                                rules_file, error.message()));
}

PrivateRules::~PrivateRules() {
  std::error_code unused;  // a folder left behind holds two links, no secret
  fs::remove_all(folder_, unused);
}

std::string PrivateRules::LoaderPath() const {
  const char* present = getenv("LD_LIBRARY_PATH");
  if (present == nullptr || *present == '\0') return folder_;
  return folder_ + ":" + present;
}

}  // namespace quorvane::tool
