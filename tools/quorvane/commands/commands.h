// SPDX-License-Identifier: Apache-2.0
// The commands; each lives in the file of its name. Adding one declares its
// options; parsing it runs it, and `exit_code` tells how that ended.
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_COMMANDS_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_COMMANDS_H_

#include <CLI/CLI.hpp>

#include "tools/quorvane/base/exit_code.h"

namespace quorvane::tool {

void AddUpdateCommand(CLI::App& app, ExitCode& exit_code);
void AddInventoryCommand(CLI::App& app, ExitCode& exit_code);
void AddChassisCommand(CLI::App& app, ExitCode& exit_code);
void AddRulesCommands(CLI::App& app, ExitCode& exit_code);
void AddReportCommand(CLI::App& app, ExitCode& exit_code);
void AddSimulateCommand(CLI::App& app, ExitCode& exit_code);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_COMMANDS_H_
