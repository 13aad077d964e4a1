// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "simulator/options.h"
#include "simulator/run_simulator.h"
#include "simulator/text.h"

namespace {

int Run(int argc, char** argv) {
  CLI::App app("A simulated BMC that speaks Redfish over HTTPS.");
  quorvane::simulator::SimulatorOptions options;
  AddOptions(app, options);
  app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
    return quorvane::simulator::Printable(error.what()) +
           "\nRun with --help for more information.\n";
  });
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : quorvane::simulator::kUnusable;
  }
  return quorvane::simulator::RunSimulator(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvane-bmc-simulator: %s\n",
                 quorvane::simulator::Printable(error.what()).c_str());
    return 1;
  }
}
