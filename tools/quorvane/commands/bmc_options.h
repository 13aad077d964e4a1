// SPDX-License-Identifier: Apache-2.0
// Options of every command that connects to a BMC.
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_OPTIONS_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_OPTIONS_H_

#include <functional>
#include <string>
#include <vector>

#include "quorvane/config.h"
#include "quorvane/logging.h"
#include "tools/quorvane/base/cli_fwd.h"
#include "tools/quorvane/base/distinct_files.h"
#include "tools/quorvane/commands/trust_options.h"
#include "tools/quorvane/worker/protocol.h"

namespace quorvane::tool {

struct BmcOptions {
  std::string bmc;  ///< Address or host name, with ":port" if needed.
  std::string user;
  std::string password_file;
  bool password_stdin = false;
  std::string rules;   ///< Rules file; empty: the installed one.
  bool force = false;  ///< Accept rules that have errors.
  std::string log;     ///< Log file; empty: a private one.
  LogLevel log_level = LogLevel::DEBUG;  ///< The lowest level in `log`.
  TrustOptions trust_options;
  Trust trust = {};  ///< What `ResolveTrust` made of them.
};

/// Adds the option --bmc to `command`. `address` must outlive it.
void AddAddressOption(CLI::App& command, std::string& address);

/// Adds the options to `command`. `options` must outlive it.
void AddBmcOptions(CLI::App& command, BmcOptions& options);

/// A function for CLI::Validator: replaces one of `names` by its position,
/// which CLI11 converts to an enumerator; rejects anything else.
std::function<std::string(std::string&)> ChoiceNumber(
    std::vector<std::string> names);

/// Adds an option that no help page shows. Its error explains that a password
/// must come from a file, and does not repeat the password.
void RejectPasswordArgument(CLI::App& command, const std::string& option);

/// Why `user` cannot be the name of an account; empty if it can.
std::string UserFault(const std::string& user);

/// Why `uri` cannot be the URI of a task; empty if it can.
std::string TaskUriFault(const std::string& uri);

/// Reads the password from the source that the options name, else from the
/// terminal.
/// @throws ToolError
std::string ReadPassword(const BmcOptions& options);

/// The error for the rules file `file`, which cannot be loaded.
std::string RulesError(const std::string& file, const std::string& reason);

/// Checks that no file that the command writes is one that it reads, or is
/// written twice.
/// @param others  The files of the command's own options.
/// @throws ToolError
void RequireDistinctFiles(const BmcOptions& options,
                          std::vector<NamedFile> others = {});

/// Checks and loads the rules before anything else happens, so that a mistake
/// is found before the password is needed. Rejects a --rules file that other
/// users can change and, unless forced, rules with errors, which it prints.
/// @throws ToolError
Config LoadRules(const BmcOptions& options);

/// The rules file that the options name, else the installed one.
std::string RulesFileOf(const BmcOptions& options);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_OPTIONS_H_
