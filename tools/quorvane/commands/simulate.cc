// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "simulator/run_simulator.h"
#include "tools/quorvane/commands/commands.h"

namespace quorvane::tool {

void AddSimulateCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("simulate", "Run a simulated BMC to rehearse against");
  const auto options = std::make_shared<simulator::SimulatorOptions>();
  command
      ->add_option("--scenario", options->scenario,
                   "A scenario file, or a ready scenario's name")
      ->capture_default_str()
      ->type_name("SCENARIO");
  command->add_option("--port", options->port, "TCP port; 0: any free one")
      ->check(CLI::Range(0, 65535).description(""))
      ->capture_default_str()
      ->type_name("PORT");
  command
      ->add_option("--bind", options->bind_address,
                   "Address to listen on, e.g. 127.0.0.1 or ::1")
      ->capture_default_str()
      ->type_name("ADDRESS");
  command
      ->add_option("--address-file", options->address_file,
                   "Write ADDRESS:PORT here once it listens")
      ->type_name("FILE");
  command->add_flag("--quiet", options->quiet, "No line per request");
  command->callback([options, &exit_code] {
    exit_code = simulator::RunSimulator(*options) == 0 ? ExitCode::kDone
                                                       : ExitCode::kUsage;
  });
}

}  // namespace quorvane::tool
