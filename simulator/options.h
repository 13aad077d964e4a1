// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_OPTIONS_H_
#define QUORVANE_SIMULATOR_OPTIONS_H_

#include <string>

namespace CLI {  // NOLINT(readability-identifier-naming): the name in CLI11
class App;
}

namespace quorvane::simulator {

struct SimulatorOptions {
  std::string scenario = "clean";  ///< A file, or a built-in scenario's name.
  std::string bind_address = "127.0.0.1";
  int port = 0;  ///< 0 selects a free port.
  /// Receives "ADDRESS:PORT\n" when the BMC listens, and is removed at the end.
  /// Empty: no file.
  std::string address_file = {};
  /// Number of simulated BMCs, each at a free port. 0: one BMC, without the
  /// following options.
  int fleet = 0;
  /// A file of scenario names and weights, instead of `scenario`; or empty.
  std::string scenarios = {};
  /// Receives an Ansible inventory, and is removed at the end. Empty: no file.
  std::string inventory_file = {};
  /// Receives a file for each BMC with its requests. Empty: they are printed.
  std::string account_directory = {};
  bool quiet = false;  ///< Do not print a line for each request.
};

/// Declares the command-line options of the simulated BMC; parsing them fills
/// `options`, which must outlive `app`.
void AddOptions(CLI::App& app, SimulatorOptions& options);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_OPTIONS_H_
