// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <system_error>

#include "simulator/options.h"
#include "simulator/run_simulator.h"
#include "tools/quorvane/base/distinct_files.h"
#include "tools/quorvane/commands/commands.h"

namespace quorvane::tool {

void AddSimulateCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("simulate", "Run a simulated BMC to rehearse updates");
  const auto options = std::make_shared<simulator::SimulatorOptions>();
  simulator::AddOptions(*command, *options);
  command->callback([options, &exit_code] {
    // Otherwise it is the name of a built-in scenario.
    std::error_code error;
    const bool is_file =
        std::filesystem::is_regular_file(options->scenario, error);
    RequireDistinct({{"--scenario", is_file ? options->scenario : ""},
                     {"--scenarios", options->scenarios},
                     {"--address-file", options->address_file, true},
                     {"--inventory-file", options->inventory_file, true}});
    exit_code = simulator::RunSimulator(*options) == 0 ? ExitCode::kDone
                                                       : ExitCode::kUsage;
  });
}

}  // namespace quorvane::tool
