// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "simulator/run_simulator.h"
#include "simulator/text.h"

namespace {

int Run(int argc, char** argv) {
  CLI::App app("A simulated BMC that speaks Redfish over HTTPS.");
  quorvane::simulator::SimulatorOptions options;
  app.add_option("--scenario", options.scenario,
                 "A scenario file, or the name of a ready scenario")
      ->capture_default_str();
  app.add_option("--port", options.port, "TCP port; 0: any free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--bind", options.bind_address,
                 "Address to listen on, e.g. 127.0.0.1 or ::1")
      ->capture_default_str();
  app.add_option("--address-file", options.address_file,
                 "Write ADDRESS:PORT to this file once the machine listens");
  app.add_flag("--quiet", options.quiet, "No line per request");
  app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
    return quorvane::simulator::Printable(error.what()) +
           "\nRun with --help for more information.\n";
  });
  CLI11_PARSE(app, argc, argv);
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
