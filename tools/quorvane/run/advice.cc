// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/advice.h"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "quorvane/config.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/run/facts.h"

namespace quorvane::tool {
namespace {

// The part of a detail before `end`.
std::string Before(const std::string& detail, std::string_view end) {
  return detail.substr(0, detail.rfind(end));
}

// "--bmc 192.0.2.7 --user admin", as far as the log names them.
std::string Account(const Run& run) {
  const LoggedAccess access = AccessIn(run);
  std::string options;
  const auto add = [&options](const char* option, const std::string& value) {
    if (!value.empty()) {
      options += fmt::format(" {} {}", option, ShellQuoted(value));
    }
  };
  add("--bmc", access.bmc);
  add("--user", access.user);
  add("--pin", access.pin);
  add("--cacert", access.cacert);
  add("--rules", access.rules);
  if (access.is_forced) options += " --force";
  return options;
}

// Whether `quorvane watch` can find out more. It cannot follow a log of the
// library alone, which names no account, or a run without an image.
bool CanBeFollowed(const Run& run) {
  if (run.title.empty()) return false;
  const Facts facts = FactsOf(run);
  if (facts.image != Answer::kAccepted && facts.image != Answer::kInDoubt) {
    return false;
  }
  const std::vector<const PhaseRun*> tasks = TasksOf(run);
  return !run.was_continued || !run.is_complete || run.was_interrupted ||
         std::any_of(tasks.begin(), tasks.end(),
                     [](const PhaseRun* task) { return IsOpen(EndOf(*task)); });
}

std::string FollowRun(const Run& run) {
  return !CanBeFollowed(run)
             ? CompareVersions(run)
             : "To follow the run to its end and compare the versions, use "
               "`quorvane watch --log LOG`, which uploads nothing.";
}

}  // namespace

LoggedAccess AccessIn(const Run& run) {
  LoggedAccess access{.bmc = run.Detail("BMC"),
                      .user = run.Detail("User"),
                      .is_forced = !run.Detail("Forced").empty()};
  const std::string check = run.Detail("Certificate check");
  constexpr std::string_view kKey = "key ";
  constexpr std::string_view kFile = "certificates in ";
  if (check.rfind(kKey, 0) == 0) {
    access.pin = check.substr(kKey.size(), check.find(',') - kKey.size());
  }
  if (const auto file = check.find(kFile); file != std::string::npos) {
    access.cacert = check.substr(file + kFile.size());
  }
  const std::string rules = Before(run.Detail("Rules"), " (SHA-256");
  if (rules != ResolveConfigPath()) access.rules = rules;
  return access;
}

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
                       ShellQuoted(task->uri), Account(run), FollowRun(run));
  }
  return run.requests.empty() ? CompareVersions(run)
                              : LookForTask(run) + " " + FollowRun(run);
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
