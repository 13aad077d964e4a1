// SPDX-License-Identifier: Apache-2.0
// The commands, each in the file of its name. Each function adds one command
// and its options to `app`. Parsing the command runs it and sets `exit_code`.
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_COMMANDS_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_COMMANDS_H_

#include "tools/quorvane/base/cli_fwd.h"
#include "tools/quorvane/base/exit_code.h"

namespace quorvane::tool {

void AddUpdateCommand(CLI::App& app, ExitCode& exit_code);
void AddPlanCommand(CLI::App& app, ExitCode& exit_code);
void AddTasksCommands(CLI::App& app, ExitCode& exit_code);
void AddInventoryCommand(CLI::App& app, ExitCode& exit_code);
void AddChassisCommand(CLI::App& app, ExitCode& exit_code);
void AddRulesCommands(CLI::App& app, ExitCode& exit_code);
/// Adds `draft` to the command `rules`.
void AddRulesDraftCommand(CLI::App& rules, ExitCode& exit_code);
void AddWatchCommand(CLI::App& app, ExitCode& exit_code);
void AddRestartCommand(CLI::App& app, ExitCode& exit_code);
void AddTrustCommand(CLI::App& app, ExitCode& exit_code);
void AddReportCommand(CLI::App& app, ExitCode& exit_code);
void AddSimulateCommand(CLI::App& app, ExitCode& exit_code);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_COMMANDS_H_
