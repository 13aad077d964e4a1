// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/bmc_options.h"

#include <fmt/core.h>

#include <map>
#include <stdexcept>

#include "quorvane/config.h"
#include "tools/quorvane/password.h"
#include "tools/quorvane/tool.h"

namespace quorvane::tool {

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
                  "The BMC's address or host name, with :PORT if needed")
      ->required()
      ->type_name("ADDRESS");
  command.add_option("--user", options.user, "Account on the BMC")
      ->required()
      ->type_name("NAME");
  auto* file = command.add_option("--password-file", options.password_file,
                                  "Read the password from this file's first "
                                  "line; else it is asked for");
  file->type_name("FILE");
  command
      .add_flag("--password-stdin", options.password_stdin,
                "Read the password from the first line of standard input")
      ->excludes(file);
  command
      .add_option("--rules", options.rules,
                  "Use this rules file instead of the installed one")
      ->type_name("FILE");
  command
      .add_option("--log", options.log,
                  "Append the log to this file; else a private one is made")
      ->type_name("FILE");
  RefusePasswordArgument(command, "--password");
  const std::map<std::string, LogLevel> levels = {
      {"debug", LogLevel::DEBUG},
      {"info", LogLevel::INFO},
      {"warning", LogLevel::WARNING},
      {"error", LogLevel::ERROR}};
  command
      .add_option("--log-level", options.log_level,
                  "What the log keeps: debug (default), info, warning, error")
      ->transform(
          CLI::CheckedTransformer(levels, CLI::ignore_case).description(""))
      ->type_name("LEVEL");
}

std::string ReadPassword(const BmcOptions& options) {
  if (!options.password_file.empty()) {
    return PasswordFromFile(options.password_file);
  }
  if (options.password_stdin) return PasswordFromStdin();
  return PasswordFromTerminal(options.user + " on " + options.bmc);
}

Config CheckRules(const BmcOptions& options) {
  try {
    return options.rules.empty() ? LoadConfigAuto() : LoadConfig(options.rules);
  } catch (const std::runtime_error& error) {
    const std::string file =
        options.rules.empty() ? ResolveConfigPath() : options.rules;
    throw ToolError(ExitCode::kUsage,
                    fmt::format("The rules cannot be used: {}. `quorvane rules "
                                "check {}` tells more.",
                                error.what(), file));
  }
}

}  // namespace quorvane::tool
