// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_RUN_SIMULATOR_H_
#define QUORVANE_SIMULATOR_RUN_SIMULATOR_H_

#include "simulator/options.h"

namespace quorvane::simulator {

/// Exit code if an option, the scenario or the address cannot be used.
constexpr int kUnusable = 2;

/// Runs a simulated BMC, or a fleet, until SIGINT or SIGTERM, and prints the
/// requests to standard output. The calling thread waits for the signals; all
/// other threads of the process must block them.
/// @return 0; or `kUnusable` after a message on standard error if the BMC
///     cannot start. The password of the scenario is never printed.
int RunSimulator(const SimulatorOptions& options);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_RUN_SIMULATOR_H_
