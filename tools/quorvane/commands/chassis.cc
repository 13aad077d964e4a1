// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_call.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/worker/protocol.h"

namespace quorvane::tool {
namespace {

struct ChassisOptions {
  BmcOptions bmc;
  bool json = false;
};

ExitCode RunChassis(const ChassisOptions& options) {
  RequireDistinctFiles(options.bmc);
  BmcCall call(options.bmc, "chassis");
  const auto [was_read, info] = call.Make<ChassisResult, ChassisCall>();
  if (!was_read) return call.PrintFailure();
  if (options.json) {
    const nlohmann::json json = {{"Manufacturer", info.Manufacturer},
                                 {"Model", info.Model},
                                 {"Name", info.Name}};
    fmt::print("{}\n",
               EscapedJson(json.dump(
                   2, ' ', false, nlohmann::json::error_handler_t::replace)));
    return ExitCode::kDone;
  }
  const auto print_line = [](const char* title, const std::string& text) {
    const std::string value = text.empty() ? "-" : Printable(text);
    fmt::print("{}\n", Wrapped(fmt::format("{:<13} {}", title, value),
                               TerminalColumns(), 14));
  };
  print_line("Manufacturer", info.Manufacturer);
  print_line("Model", info.Model);
  print_line("Name", info.Name);
  return ExitCode::kDone;
}

}  // namespace

void AddChassisCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "chassis", "Show the manufacturer, model and name of a server");
  const auto options = std::make_shared<ChassisOptions>();
  AddBmcOptions(*command, options->bmc);
  command->add_flag("--json", options->json, "Print JSON");
  command->callback(
      [options, &exit_code] { exit_code = RunChassis(*options); });
}

}  // namespace quorvane::tool
