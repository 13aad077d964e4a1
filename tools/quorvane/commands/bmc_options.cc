// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/bmc_options.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "quorvane/config.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/commands/password.h"
#include "tools/quorvane/rules/check.h"

namespace quorvane::tool {
namespace {

// Like `UserFault`, it does not repeat the argument, which may contain a
// password.
std::string AddressFault(const std::string& address) {
  const bool is_plain =
      !address.empty() &&
      std::all_of(address.begin(), address.end(), [](const char c) {
        return c > ' ' && c != '\x7f' &&
               std::string_view("@?#\\/").find(c) == std::string_view::npos;
      });
  return is_plain ? std::string()
                  : "give only the address, such as 192.0.2.7 or "
                    "[2001:db8::7]:8443";
}

// Replaces the name of a log level with its number. The text of
// CLI::CheckedTransformer would list the numbers too, and accept them.
std::string LevelNumber(std::string& name) {
  constexpr std::array kNames = {"debug", "info", "warning", "error"};
  const auto* const level = std::find(kNames.begin(), kNames.end(), name);
  if (level == kNames.end()) {
    return "use debug, info, warning or error, not " + name;
  }
  name = std::to_string(level - kNames.begin());
  return {};
}

// Prints the errors. Warnings would hide them; `rules check` prints both.
void RequireNoErrors(const std::string& file, bool force) {
  const std::vector<Finding> findings =
      CheckRules(ReadRegular(file, "rules file"));
  for (const Finding& finding : findings) {
    if (finding.severity == Severity::kWarning) continue;
    fmt::print(stderr, "{}\n",
               LineOf(finding, file, ShowsColors(STDERR_FILENO)));
  }
  if (force || !HasErrors(findings)) return;
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot use the rules file {}: it has errors, and nothing "
                  "was sent. Correct them (for warnings too, run `quorvane "
                  "rules check {}`), or use --force to accept them.",
                  file, file));
}

std::string RulesFileOf(const BmcOptions& options) {
  return options.rules.empty() ? ResolveConfigPath() : options.rules;
}

}  // namespace

std::string UserFault(const std::string& user) {
  return user.find(':') == std::string::npos
             ? std::string()
             : "give only the name, without a colon; the password has its own "
               "option";
}

void RejectPasswordArgument(CLI::App& command, const std::string& option) {
  command
      .add_option_function<std::string>(
          option,
          [option](const std::string& /*password*/) {
            throw ToolError(
                ExitCode::kUsage,
                "Cannot use " + option +
                    ": arguments are visible in every process list. "
                    "Use " +
                    option + "-file FILE instead.");
          })
      ->group("");
}

void AddBmcOptions(CLI::App& command, BmcOptions& options) {
  command
      .add_option("--bmc", options.bmc,
                  "Address or host name of the BMC, with :PORT if needed")
      ->required()
      ->check(CLI::Validator(AddressFault, ""))
      ->type_name("ADDRESS");
  command.add_option("--user", options.user, "Account on the BMC")
      ->required()
      ->check(CLI::Validator(UserFault, ""))
      ->type_name("NAME");
  auto* file = command.add_option("--password-file", options.password_file,
                                  "File that contains the password (default: "
                                  "prompt)");
  file->type_name("FILE");
  command
      .add_flag("--password-stdin", options.password_stdin,
                "Read the password from standard input")
      ->excludes(file);
  command
      .add_option("--rules", options.rules,
                  "Rules file to use instead of the installed one")
      ->type_name("FILE");
  command.add_flag("--force", options.force,
                   "Accept a rules file that `rules check` finds errors in");
  command
      .add_option("--log", options.log,
                  "Append the log to this file (default: a new private "
                  "file)")
      ->type_name("FILE");
  RejectPasswordArgument(command, "--password");
  command
      .add_option("--log-level", options.log_level,
                  "Least severe level to log: debug (default), info, warning "
                  "or error")
      ->transform(CLI::Validator(LevelNumber, ""))
      ->type_name("LEVEL");
}

void RequireDistinctFiles(const BmcOptions& options,
                          std::vector<NamedFile> others) {
  others.push_back({"--password-file", options.password_file});
  others.push_back(
      {options.rules.empty() ? "the installed rules file" : "--rules",
       RulesFileOf(options)});
  others.push_back({"--log", options.log, /*is_written=*/true});
  RequireDistinct(others);
}

std::string ReadPassword(const BmcOptions& options) {
  if (!options.password_file.empty()) {
    return PasswordFromFile(options.password_file);
  }
  if (options.password_stdin) return PasswordFromStdin();
  return PasswordFromTerminal(options.user + " on " + options.bmc);
}

std::string RulesError(const std::string& file, const std::string& reason) {
  return fmt::format(
      "Cannot use the rules: {}. {}", reason,
      access(file.c_str(), R_OK) == 0
          ? "For details, run `quorvane rules check " + file + "`."
          : "Check its name and mode.");
}

Config LoadRules(const BmcOptions& options) {
  if (!options.rules.empty()) RequireTrusted(options.rules, "rules");
  const std::string file = RulesFileOf(options);
  RequireNoErrors(file, options.force);
  try {
    return LoadConfig(file);
  } catch (const std::runtime_error& error) {
    throw ToolError(ExitCode::kUsage, RulesError(file, error.what()));
  }
}

}  // namespace quorvane::tool
