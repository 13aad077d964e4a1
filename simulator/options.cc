// SPDX-License-Identifier: Apache-2.0
#include "simulator/options.h"

#include <CLI/CLI.hpp>

namespace quorvane::simulator {
namespace {

// A BMC needs a thread and a socket.
constexpr int kMaxFleet = 1000;

}  // namespace

void AddOptions(CLI::App& app, SimulatorOptions& options) {
  auto* scenario =
      app.add_option("--scenario", options.scenario,
                     "A scenario file, or the name of a built-in scenario")
          ->capture_default_str()
          ->type_name("SCENARIO");
  auto* port =
      app.add_option("--port", options.port, "TCP port; 0 selects a free port")
          ->check(CLI::Range(0, 65535).description(""))
          ->capture_default_str()
          ->type_name("PORT");
  app.add_option("--bind", options.bind_address,
                 "Address to listen on, such as 127.0.0.1 or ::1")
      ->capture_default_str()
      ->type_name("ADDRESS");
  auto* address_file =
      app.add_option("--address-file", options.address_file,
                     "Write ADDRESS:PORT to this file when the BMC listens")
          ->type_name("FILE");
  auto* fleet = app.add_option("--fleet", options.fleet,
                               "Run this number of BMCs, each at a free port")
                    ->check(CLI::Range(1, kMaxFleet).description(""))
                    ->excludes(port, address_file)
                    ->type_name("NUMBER");
  app.add_option("--scenarios", options.scenarios,
                 "With --fleet: JSON file of scenarios and their weights")
      ->needs(fleet)
      ->excludes(scenario)
      ->type_name("FILE");
  app.add_option("--inventory-file", options.inventory_file,
                 "With --fleet: write an Ansible inventory (YAML if the name "
                 "ends in .yml or .yaml, otherwise INI)")
      ->needs(fleet)
      ->type_name("FILE");
  app.add_option("--account-dir", options.account_directory,
                 "With --fleet: write the requests of each BMC to a file here")
      ->needs(fleet)
      ->type_name("DIRECTORY");
  // An empty value is usually an unset variable of a script.
  for (CLI::Option* option : app.get_options()) {
    option->check(CLI::Validator(
        [](const std::string& value) {
          return value.empty() ? "the value is empty" : std::string();
        },
        ""));
  }
  app.add_flag("--quiet", options.quiet,
               "Do not print a line for each request");
}

}  // namespace quorvane::simulator
