// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/worker/private_rules.h"

#include <fmt/core.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>
#include <tuple>

#include "quorvane/config.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLibrary = "libQuorvaneLib.so.1";
constexpr const char* kRules = "brindle.config.json";

// What an update reads of the rules, but for the reboot and the account.
auto UpdateRulesOf(const Config& rules) {
  return std::tie(rules.max_retries, rules.sleep_time, rules.backoff_strategy,
                  rules.inventory_uri, rules.inventory_rules, rules.upload_uri,
                  rules.upload_rules, rules.task_uri, rules.polling_interval,
                  rules.max_polling_time_seconds, rules.task_states,
                  rules.activation_uri, rules.activation_rules,
                  rules.reboot_uri, rules.reboot_rules);
}

// Two readers can understand one text differently, e.g. a key that occurs
// twice. So the copy counts only if the library reads the same rules in it.
void WriteWithoutReboot(const std::string& rules_file,
                        const std::string& copy) {
  try {
    nlohmann::json json =
        nlohmann::json::parse(ReadRegular(rules_file, "rules file"));
    json.at("authentication").erase("password");
    json.at("authentication").erase("token");
    json.at("firmware_update").at("reboot")["reboot_required"] = false;
    WriteDocument(copy, json.dump());
    const Config changed = LoadConfig(copy);
    if (!changed.reboot_required &&
        UpdateRulesOf(changed) == UpdateRulesOf(LoadConfig(rules_file))) {
      return;
    }
  } catch (const std::exception&) {  // reported below
  }
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot use the rules file {} with a reboot by the tool. Run "
                  "`quorvane rules check {}`, or use --restart rules.",
                  rules_file, rules_file));
}

}  // namespace

PrivateRules::PrivateRules(const std::string& rules_file, Content content) {
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
    if (content == Content::kNoReboot) {
      WriteWithoutReboot(rules.string(), (directory / kRules).string());
    } else {
      fs::create_symlink(rules, directory / kRules, error);
    }
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
