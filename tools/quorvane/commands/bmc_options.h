// SPDX-License-Identifier: Apache-2.0
// What every command that speaks to a BMC asks for.
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_OPTIONS_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_OPTIONS_H_

#include <CLI/CLI.hpp>
#include <string>

#include "quorvane/config.h"
#include "quorvane/logging.h"

namespace quorvane::tool {

struct BmcOptions {
  std::string bmc;  ///< Address or host name, with ":port" if needed.
  std::string user;
  std::string password_file;
  bool password_stdin = false;
  std::string rules;   ///< Rules file; empty: the one beside the library.
  bool force = false;  ///< Use rules that could send requests elsewhere.
  std::string log;     ///< Log file; empty: a private one.
  LogLevel log_level = LogLevel::DEBUG;  ///< The least that `log` keeps.
};

/// Declares the options on `command`; `options` must outlive it.
void AddBmcOptions(CLI::App& command, BmcOptions& options);

/// Declares an option that is on no help page and always explains that
/// passwords come from files, so that one typed out of habit is not printed.
void RefusePasswordArgument(CLI::App& command, const std::string& option);

/// Why `user` is no name of an account; empty when it can be one.
std::string UserFault(const std::string& user);

/// From where the options say, else typed on the terminal.
/// @throws ToolError
std::string ReadPassword(const BmcOptions& options);

/// What to say of a rules file that `why` keeps from use.
std::string RulesComplaint(const std::string& file, const std::string& why);

/// Loads the rules before anything else happens, so that a mistake in them
/// costs no password and is told with the file's own name. Rejects a --rules
/// file that other users can change and, unless forced, URIs that could lead to
/// another host.
/// @throws ToolError
Config CheckRules(const BmcOptions& options);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_OPTIONS_H_
