// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/advice.h"

#include <fmt/core.h>

#include <string_view>
#include <utility>

#include "quorvane/config.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

// The part of a detail before `end`.
std::string Before(const std::string& detail, std::string_view end) {
  return detail.substr(0, detail.rfind(end));
}

// "--bmc 192.0.2.7 --user admin", as far as the log names them.
std::string Account(const Run& run) {
  std::string options;
  const auto add = [&options](const char* option, const std::string& value) {
    if (!value.empty()) {
      options += fmt::format(" {} {}", option, ShellQuoted(value));
    }
  };
  add("--bmc", run.Detail("BMC"));
  add("--user", run.Detail("User"));
  const std::string check = run.Detail("Certificate check");
  constexpr std::string_view kKey = "key ";
  constexpr std::string_view kFile = "certificates in ";
  if (check.rfind(kKey, 0) == 0) {
    add("--pin", check.substr(kKey.size(), check.find(',') - kKey.size()));
  }
  if (const auto file = check.find(kFile); file != std::string::npos) {
    add("--cacert", check.substr(file + kFile.size()));
  }
  const std::string rules = Before(run.Detail("Rules"), " (SHA-256");
  if (rules != ResolveConfigPath()) add("--rules", rules);
  if (!run.Detail("Forced").empty()) options += " --force";
  return options;
}

}  // namespace

std::string RebootCommand(const Run& run) {
  return fmt::format("`quorvane restart{}`", Account(run));
}

std::string CompareVersions(const Run& run) {
  return fmt::format(
      "Run `quorvane inventory{}` and compare the versions with those before "
      "the update.",
      Account(run));
}

std::string LookForTask(const Run& run) {
  return fmt::format("Look for a new task with `quorvane tasks{}`.",
                     Account(run));
}

std::string CheckTask(const Run& run) {
  const PhaseRun* task = run.Last(Phase::kTask);
  if (task != nullptr && !task->uri.empty()) {
    return fmt::format("Check the task with `quorvane task {}{}`. {}",
                       ShellQuoted(task->uri), Account(run),
                       CompareVersions(run));
  }
  return run.requests.empty() ? CompareVersions(run)
                              : LookForTask(run) + " " + CompareVersions(run);
}

std::string AfterForbiddenInventory(const Run& run) {
  return fmt::format(
      "Use an account with the privileges to read the inventory and to update "
      "firmware; test it with `quorvane inventory{}`.",
      Account(run));
}

std::string AfterRefusedLogin(const Run& run) {
  // The same credentials were accepted, so they are correct.
  const char* const check =
      run.items_read >= 0
          ? "The BMC accepted this account for the inventory, so check whether "
            "the account has the right for the refused request, and whether "
            "the BMC limits its sessions."
          : "Check the user and the password.";
  return std::string(check) + " More attempts can lock the account.";
}

}  // namespace quorvane::tool
