// SPDX-License-Identifier: Apache-2.0
#include "simulator/options.h"

#include <CLI/CLI.hpp>

namespace quorvane::simulator {

void AddOptions(CLI::App& app, SimulatorOptions& options) {
  app.add_option("--scenario", options.scenario,
                 "A scenario file, or the name of a built-in scenario")
      ->capture_default_str()
      ->type_name("SCENARIO");
  app.add_option("--port", options.port, "TCP port; 0 selects a free port")
      ->check(CLI::Range(0, 65535).description(""))
      ->capture_default_str()
      ->type_name("PORT");
  app.add_option("--bind", options.bind_address,
                 "Address to listen on, such as 127.0.0.1 or ::1")
      ->capture_default_str()
      ->type_name("ADDRESS");
  app.add_option("--address-file", options.address_file,
                 "Write ADDRESS:PORT to this file when the BMC listens")
      ->type_name("FILE");
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
