// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/commands/run_session.h"

namespace quorvane::tool {
namespace {

ExitCode RunRestart(BmcOptions options) {
  RequireDistinctFiles(options, {});
  const Config rules = LoadRules(options);
  options.trust = ResolveTrust(options);
  const InventoryRequest request{.ip = options.bmc,
                                 .username = options.user,
                                 .password = ReadPassword(options)};
  RunSession session(options, {.title = "restart of " + options.bmc,
                               .style = ProgressStyle::kPlain,
                               .attempts = rules.max_retries + 1});
  if (session.Probe()) {
    static_cast<void>(session.Call(RestartCall{request}));
  }
  const Verdict verdict = session.Finish();
  PrintText(TextOf(verdict, options.bmc, TerminalColumns()) +
            "Log:     " + Printable(session.log().path()) + "\n");
  return ExitCodeOf(verdict, session.log().IsComplete());
}

}  // namespace

void AddRestartCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "restart", "Reboot the system, by the reboot section of the rules");
  const auto options = std::make_shared<BmcOptions>();
  AddBmcOptions(*command, *options);
  command->callback(
      [options, &exit_code] { exit_code = RunRestart(*options); });
}

}  // namespace quorvane::tool
