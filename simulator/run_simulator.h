// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_RUN_SIMULATOR_H_
#define QUORVANE_SIMULATOR_RUN_SIMULATOR_H_

#include <string>

namespace quorvane::simulator {

struct SimulatorOptions {
  std::string scenario = "clean";  ///< A file, or a ready scenario's name.
  std::string bind_address = "127.0.0.1";
  int port = 0;  ///< 0: any free one.
  /// Receives "ADDRESS:PORT\n" once the machine listens, whole or not at all;
  /// removed at the end. Empty: no file.
  std::string address_file = {};
  bool quiet = false;  ///< No line per request.
};

/// Runs a simulated BMC and writes what happens to standard output, until
/// SIGINT or SIGTERM. The calling thread waits for the signals; another thread
/// of the process must not take them.
/// @return 0, or 1 after a message on standard error when the machine cannot
///     start. The scenario's password is never printed.
int RunSimulator(const SimulatorOptions& options);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_RUN_SIMULATOR_H_
