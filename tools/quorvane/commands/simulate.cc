// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "simulator/options.h"
#include "simulator/run_simulator.h"
#include "tools/quorvane/commands/commands.h"

namespace quorvane::tool {

void AddSimulateCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("simulate", "Run a simulated BMC to rehearse updates");
  const auto options = std::make_shared<simulator::SimulatorOptions>();
  simulator::AddOptions(*command, *options);
  command->callback([options, &exit_code] {
    exit_code = simulator::RunSimulator(*options) == 0 ? ExitCode::kDone
                                                       : ExitCode::kUsage;
  });
}

}  // namespace quorvane::tool
