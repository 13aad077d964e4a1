// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <variant>

#include "tools/quorvane/base/address.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/commands/trust_options.h"
#include "tools/quorvane/worker/library_process.h"

namespace quorvane::tool {
namespace {

struct TrustCommandOptions {
  std::string bmc;
  std::string known_hosts;
  bool yes = false;
  bool replace = false;
};

class IgnoredRecords : public CallListener {
 public:
  void OnRecord(const Record& /*record*/) override {}
  void OnTick() override {}
};

std::string KeyOf(const std::string& address) {
  Signals signals(Signals::OnHangup::kStop);
  IgnoredRecords ignored;
  const CallResult result = CallLibrary(KeyCall{address}, {}, signals, ignored);
  if (result.end == CallResult::End::kInterrupted) {
    throw ToolError(ExitCode::kInterrupted,
                    "Interrupted. The file was not changed.");
  }
  std::string reason = result.reason;
  if (result.response) {
    if (const auto* key = std::get_if<KeyResult>(&*result.response)) {
      return key->key;
    }
    reason = std::get<WorkerError>(*result.response).message;
  }
  throw ToolError(ExitCode::kUnreachable,
                  fmt::format("No response from {}: {}. Check the address and "
                              "the network, and that the BMC is powered on.",
                              address, reason));
}

bool IsConfirmed() {
  if (isatty(STDIN_FILENO) != 1) {
    throw ToolError(ExitCode::kUsage,
                    "Cannot ask whether to store the key: standard input is no "
                    "terminal. Compare the key, then use --yes.");
  }
  fmt::print(
      "Store it? Compare it with the key of the server first. [yes/no] ");
  std::fflush(stdout);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "yes";
}

// The file with the key of `address`; its other lines stay.
std::string WithKey(const std::string& file, const std::string& address,
                    const std::string& key) {
  std::string changed;
  std::istringstream lines(
      std::filesystem::exists(file) ? ReadRegular(file, "known hosts") : "");
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    if (NormalizedAddress(name) != NormalizedAddress(address)) {
      changed += line + "\n";
    }
  }
  return changed + fmt::format("{} {}\n", address, key);
}

ExitCode RunTrust(const TrustCommandOptions& options) {
  const std::string file =
      EffectiveTrustOptions({.known_hosts = options.known_hosts}).known_hosts;
  if (!file.empty()) CheckDocumentPath(file);
  const auto stored =
      file.empty() ? std::nullopt : StoredKey(file, options.bmc);
  const std::string key = KeyOf(options.bmc);
  fmt::print("{} has the key {}\n", Printable(options.bmc), key);
  if (file.empty()) {
    fmt::print("Use it with --pin, or store it with --known-hosts FILE.\n");
    return ExitCode::kDone;
  }
  if (stored == key) {
    fmt::print("{} contains this key.\n", Printable(file));
    return ExitCode::kDone;
  }
  if (stored && !options.replace) {
    throw ToolError(
        ExitCode::kFailed,
        fmt::format("The key of {} has changed: {} contains {}. Another "
                    "computer may answer for the BMC. If the BMC got a new "
                    "certificate, use --replace.",
                    options.bmc, file, *stored));
  }
  if (!options.yes && !IsConfirmed()) {
    fmt::print("Not stored.\n");
    return ExitCode::kFailed;
  }
  const Descriptor lock = LockDocument(file);
  WriteDocument(file, WithKey(file, options.bmc, key));
  fmt::print("Stored in {}.\n", Printable(file));
  return ExitCode::kDone;
}

}  // namespace

void AddTrustCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "trust", "Show the public key of a BMC, and store it for later runs");
  const auto options = std::make_shared<TrustCommandOptions>();
  AddAddressOption(*command, options->bmc);
  command
      ->add_option("--known-hosts", options->known_hosts,
                   "File in which to store the key")
      ->type_name("FILE");
  command->add_flag("--yes", options->yes, "Store the key without a question");
  command->add_flag("--replace", options->replace,
                    "Replace the stored key if it differs");
  command->callback([options, &exit_code] { exit_code = RunTrust(*options); });
}

}  // namespace quorvane::tool
