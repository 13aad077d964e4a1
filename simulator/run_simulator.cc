// SPDX-License-Identifier: Apache-2.0
#include "simulator/run_simulator.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "simulator/redfish.h"
#include "simulator/scenario.h"
#include "simulator/simulated_bmc.h"
#include "simulator/text.h"

namespace quorvane::simulator {
namespace {

constexpr std::size_t kMaxRecordedRequests = 100;

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

/// Creates `path` and writes all of `text` to it. Fails if the name exists,
/// even as a symbolic link: another user may have placed it there.
bool WriteNewFile(const std::string& path, const std::string& text) {
  const int fd =
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  const ssize_t count = write(fd, text.data(), text.size());
  const bool is_complete =
      close(fd) == 0 && count == static_cast<ssize_t>(text.size());
  if (!is_complete) std::remove(path.c_str());
  return is_complete;
}

/// A file that contains the address of the BMC while the object exists. A
/// script may wait for the file, so a rename makes it appear complete.
class AddressFile {
 public:
  AddressFile(std::string path, const std::string& address)
      : path_(std::move(path)) {
    if (path_.empty()) return;
    // The rename would replace a device such as /dev/null.
    const auto status = std::filesystem::symlink_status(path_);
    if (exists(status) && !is_regular_file(status)) {
      throw std::runtime_error("cannot replace " + path_ +
                               ": it is not a regular file. Choose another "
                               "address file.");
    }
    const std::string temporary = path_ + '.' + std::to_string(getpid());
    if (!WriteNewFile(temporary, address + '\n')) Fail(temporary, errno);
    if (std::rename(temporary.c_str(), path_.c_str()) != 0) {
      const int error = errno;
      std::remove(temporary.c_str());
      Fail(path_, error);
    }
  }
  ~AddressFile() {
    if (!path_.empty()) std::remove(path_.c_str());
  }
  AddressFile(const AddressFile&) = delete;
  AddressFile& operator=(const AddressFile&) = delete;

 private:
  [[noreturn]] static void Fail(const std::string& path, int error) {
    throw std::runtime_error("cannot write " + path + ": " +
                             std::generic_category().message(error) +
                             ". Choose another address file.");
  }

  std::string path_;
};

std::string StatusText(const BmcResponse& response) {
  switch (response.fault) {
    case Fault::kDrop:
      return "dropped";
    case Fault::kReset:
      return "reset";
    case Fault::kNotHttp:
      return "not HTTP";
    case Fault::kCutShort:
      return std::to_string(response.status) + " cut short";
    case Fault::kGarbage:
      return std::to_string(response.status) + " with garbage";
    case Fault::kSlowDrip:
      return std::to_string(response.status) + " byte by byte";
    case Fault::kNone:
      break;
  }
  return std::to_string(response.status);
}

void PrintExchange(const Exchange& exchange) {
  std::cout << Printable(exchange.request.method) << ' '
            << Printable(exchange.request.path) << ' '
            << StatusText(exchange.response);
  if (exchange.response.delay.count() > 0) {
    std::cout << " after " << exchange.response.delay.count() << " ms";
  }
  if (!exchange.note.empty()) std::cout << "  " << Printable(exchange.note);
  std::cout << '\n';
  for (const std::string& change : exchange.changes) {
    std::cout << Printable(change) << '\n';
  }
  // Flush, so that the reader of a pipe sees each line immediately.
  std::cout << std::flush;
}

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
      << "Simulated BMC at https://" << address << '\n'
      << "Scenario " << Printable(scenario_file) << ": "
      << Printable(scenario.description) << '\n'
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

}  // namespace

int RunSimulator(const SimulatorOptions& options) {
  try {
    const std::string file = FindScenario(options.scenario);
    const Scenario scenario = LoadScenario(file);
    const StopSignals stop;
    BmcOptions bmc_options{.bind_address = options.bind_address,
                           .port = options.port,
                           .max_recorded_body = 0,
                           .max_recorded_requests = kMaxRecordedRequests};
    if (!options.quiet) bmc_options.observer = PrintExchange;
    const SimulatedBmc bmc(scenario, bmc_options);
    const AddressFile address_file(options.address_file, bmc.Address());
    PrintUsage(file, scenario, bmc.Address());
    stop.Wait();
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "simulator: " << Printable(error.what()) << '\n';
    return kUnusable;
  }
}

}  // namespace quorvane::simulator
