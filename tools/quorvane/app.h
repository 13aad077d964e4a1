// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_APP_H_
#define QUORVANE_TOOLS_QUORVANE_APP_H_

#include <memory>

#include "tools/quorvane/base/cli_fwd.h"
#include "tools/quorvane/base/exit_code.h"

namespace quorvane::tool {

/// The command line with all commands. Parsing a command runs it and stores its
/// outcome in `exit_code`, which must outlive the application.
std::unique_ptr<CLI::App> MakeApp(ExitCode& exit_code);

/// Parses the command line, runs the command and prints an error, if any.
ExitCode RunTool(int argc, char** argv);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_APP_H_
