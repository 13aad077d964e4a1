// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/bmc_options.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "quorvane/config.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/commands/password.h"

namespace quorvane::tool {
namespace {

// Neither fault repeats the argument, which may hold a password.

std::string AddressFault(const std::string& address) {
  const bool is_plain =
      !address.empty() &&
      std::all_of(address.begin(), address.end(), [](const char c) {
        return c > ' ' && c != '\x7f' &&
               std::string_view("@?#\\/").find(c) == std::string_view::npos;
      });
  return is_plain ? std::string()
                  : "give the address alone, such as 192.0.2.7 or "
                    "[2001:db8::7]:8443";
}

// Every list of URIs that the rules have.
void RequirePaths(const Config& rules, const std::string& file) {
  for (const auto* uris :
       {&rules.inventory_uri, &rules.upload_uri, &rules.task_uri,
        &rules.activation_uri, &rules.reboot_uri}) {
    for (const std::string& uri : *uris) {
      if (uri.rfind('/', 0) == 0) continue;
      throw ToolError(
          ExitCode::kUsage,
          fmt::format(
              "Cannot use the rules file {}: the URI \"{}\" does not begin "
              "with \"/\", so it could send the account and the image to "
              "another host. Correct it, or give --force to use it.",
              file, uri));
    }
  }
}

}  // namespace

std::string UserFault(const std::string& user) {
  return user.find(':') == std::string::npos
             ? std::string()
             : "give the name alone, without a colon; the password has its own "
               "option";
}

void RefusePasswordArgument(CLI::App& command, const std::string& option) {
  command
      .add_option_function<std::string>(
          option,
          [option](const std::string& /*password*/) {
            throw ToolError(ExitCode::kUsage,
                            "A password in an argument shows in every process "
                            "list; give " +
                                option + "-file FILE instead.");
          })
      ->group("");
}

void AddBmcOptions(CLI::App& command, BmcOptions& options) {
  command
      .add_option("--bmc", options.bmc,
                  "Address or host name of the BMC, or HOST:PORT")
      ->required()
      ->check(CLI::Validator(AddressFault, ""))
      ->type_name("ADDRESS");
  command.add_option("--user", options.user, "Account on the BMC")
      ->required()
      ->check(CLI::Validator(UserFault, ""))
      ->type_name("NAME");
  auto* file = command.add_option("--password-file", options.password_file,
                                  "File with the password; else it is asked "
                                  "for");
  file->type_name("FILE");
  command
      .add_flag("--password-stdin", options.password_stdin,
                "Read the password from standard input")
      ->excludes(file);
  command
      .add_option("--rules", options.rules,
                  "Use this rules file, not the installed one")
      ->type_name("FILE");
  command.add_flag("--force", options.force,
                   "Use rules whose URIs do not begin with \"/\"");
  command
      .add_option("--log", options.log,
                  "Append the log here; else a private one is made")
      ->type_name("FILE");
  RefusePasswordArgument(command, "--password");
  command
      .add_option("--log-level", options.log_level,
                  "debug (default), info, warning or error")
      ->transform(CLI::Validator(
          [](std::string& word) {
            const std::vector<std::string> levels = {"debug", "info", "warning",
                                                     "error"};
            const auto level = std::find(levels.begin(), levels.end(), word);
            if (level == levels.end()) {
              return "give debug, info, warning or error, not " + word;
            }
            word = std::to_string(level - levels.begin());
            return std::string();
          },
          ""))
      ->type_name("LEVEL");
}

std::string ReadPassword(const BmcOptions& options) {
  if (!options.password_file.empty()) {
    return PasswordFromFile(options.password_file);
  }
  if (options.password_stdin) return PasswordFromStdin();
  return PasswordFromTerminal(options.user + " on " + options.bmc);
}

std::string RulesComplaint(const std::string& file, const std::string& why) {
  return fmt::format("The rules cannot be used: {}. {}", why,
                     access(file.c_str(), R_OK) == 0
                         ? "`quorvane rules check " + file + "` tells more."
                         : "Check its name and rights.");
}

Config CheckRules(const BmcOptions& options) {
  if (!options.rules.empty()) RequireTrusted(options.rules, "rules");
  const std::string file =
      options.rules.empty() ? ResolveConfigPath() : options.rules;
  Config rules;
  try {
    rules = LoadConfig(file);
  } catch (const std::runtime_error& error) {
    throw ToolError(ExitCode::kUsage, RulesComplaint(file, error.what()));
  }
  if (!options.force) RequirePaths(rules, file);
  return rules;
}

}  // namespace quorvane::tool
