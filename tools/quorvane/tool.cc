// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/tool.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string_view>

#include "tools/quorvane/commands.h"
#include "tools/quorvane/text.h"
#include "tools/quorvane/worker.h"

namespace quorvane::tool {
namespace {

// A program started without one of its three streams would hand that number to
// the first file it opens, and print its messages into it.
void OccupyStandardStreams() {
  int descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
    descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  }
  if (descriptor >= 0) close(descriptor);
}

ExitCode Complain(ExitCode code, std::string_view text) {
  fmt::print(stderr, "quorvane: {}\n", Printable(text));
  return code;
}

ExitCode ParseAndRun(int argc, char** argv) {
  ExitCode exit_code = ExitCode::kDone;
  const std::unique_ptr<CLI::App> app = MakeApp(exit_code);
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool only_help = app->exit(error) == 0;
    return only_help ? ExitCode::kDone : ExitCode::kUsage;
  }
  return exit_code;
}

}  // namespace

std::unique_ptr<CLI::App> MakeApp(ExitCode& exit_code) {
  auto app = std::make_unique<CLI::App>(
      "Updates server firmware through a BMC that speaks Redfish.", "quorvane");
  app->set_version_flag("--version", "quorvane " QUORVANE_VERSION);
  app->require_subcommand(1);
  AddUpdateCommand(*app, exit_code);
  AddInventoryCommand(*app, exit_code);
  AddChassisCommand(*app, exit_code);
  AddRulesCommands(*app, exit_code);
  AddReportCommand(*app, exit_code);
  AddSimulateCommand(*app, exit_code);
  return app;
}

ExitCode RunTool(int argc, char** argv) {
  OccupyStandardStreams();
  try {
    if (argc == 2 && std::string_view(argv[1]) == kWorkerArgument) {
      return RunWorker();
    }
    return ParseAndRun(argc, argv);
  } catch (const ToolError& error) {
    return Complain(error.code(), error.what());
  } catch (const std::exception& error) {
    return Complain(ExitCode::kFailed, error.what());
  }
}

}  // namespace quorvane::tool
