// SPDX-License-Identifier: Apache-2.0
#include "simulator/run_simulator.h"

#include <cctype>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <utility>

#include "simulator/account.h"
#include "simulator/fleet.h"
#include "simulator/published_file.h"
#include "simulator/redfish.h"
#include "simulator/scenario.h"
#include "simulator/simulated_bmc.h"
#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

/// Blocks SIGINT and SIGTERM, so that `Wait` receives them and the simulator
/// can shut down properly. New threads inherit the signal mask.
class StopSignals {
 public:
  StopSignals() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, &previous_mask_);
  }
  ~StopSignals() { pthread_sigmask(SIG_SETMASK, &previous_mask_, nullptr); }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  void Wait() const {
    int signal = 0;
    sigwait(&signals_, &signal);
  }

 private:
  sigset_t signals_{};
  sigset_t previous_mask_{};
};

// The options of an update that fit the scenario. The simulated BMC never
// fetches the image of a share.
std::string ImageOptions(const Scenario& scenario, const std::string& address) {
  const bool has_uploads = !scenario.upload.multipart_paths.empty() ||
                           !scenario.upload.binary_paths.empty();
  const SimpleUpdateAction& action = scenario.simple_update;
  if (action.status >= 400 && has_uploads && !scenario.images.empty()) {
    return "--image " +
           ShellWord("https://" + address + scenario.images.front().path);
  }
  if (has_uploads || action.protocols.empty()) return "--file IMAGE";
  std::string scheme;
  for (const char c : action.protocols.front()) {
    scheme += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  std::string options =
      "--image " + ShellWord(scheme + "://192.0.2.9/firmware.bin");
  if (action.requires_targets && !scenario.firmware.members.empty()) {
    options +=
        " \\\n    --target " + ShellWord(std::string(kFirmwareInventory) + '/' +
                                         scenario.firmware.members.front().id);
  }
  return options;
}

void PrintUsage(const std::string& scenario_file, const Scenario& scenario,
                const std::string& address) {
  std::cout
      << AccountHeading(address, scenario_file, scenario)
      << "Write the password of the scenario (default: \"password\") to a "
         "file with mode 0600.\n"
      << "Then run in another terminal:\n"
      << "  quorvane update --bmc " << ShellWord(address) << " --user "
      << ShellWord(scenario.user)
      << " --insecure --password-file PASSWORD_FILE \\\n"
         "    "
      << ImageOptions(scenario, address) << " --rules RULES_FILE\n"
      << "Press Ctrl-C to stop." << std::endl;
}

// Runs until a signal arrives.
void RunOne(const SimulatorOptions& options, const StopSignals& stop) {
  const std::string file = FindScenario(options.scenario);
  const Scenario scenario = LoadScenario(file);
  BmcOptions bmc_options{.bind_address = options.bind_address,
                         .port = options.port,
                         .max_recorded_body = 0,
                         .max_recorded_requests = 0};
  if (!options.quiet) {
    bmc_options.observer = [](const Exchange& exchange) {
      // Flush, so that the reader of a pipe sees each line immediately.
      std::cout << AccountOf(exchange) << std::flush;
    };
  }
  const SimulatedBmc bmc(scenario, bmc_options);
  const PublishedFile address_file(options.address_file, bmc.Address() + '\n',
                                   "address file");
  PrintUsage(file, scenario, bmc.Address());
  stop.Wait();
}

void RunFleet(const SimulatorOptions& options, const StopSignals& stop) {
  const Fleet fleet(options);
  std::cout << fleet.Summary() << std::flush;
  stop.Wait();
}

}  // namespace

int RunSimulator(const SimulatorOptions& options) {
  try {
    const StopSignals stop;
    if (options.fleet > 0) {
      RunFleet(options, stop);
    } else {
      RunOne(options, stop);
    }
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "simulator: " << Printable(error.what()) << '\n';
    return kUnusable;
  }
}

}  // namespace quorvane::simulator
