// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_call.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/view/progress.h"

namespace quorvane::tool {
namespace {

struct Options {
  BmcOptions bmc;
  bool json = false;
};

ExitCode RunChassis(const Options& options) {
  BmcCall call(options.bmc, "chassis");
  nlohmann::json answer = call.Ask();
  if (!answer.at("read").get<bool>()) return call.Refused();
  answer.erase("read");
  if (options.json) {
    fmt::print("{}\n", EscapedJson(answer.dump(2)));
    return ExitCode::kDone;
  }
  const auto show = [&answer](const char* title, const char* key) {
    const std::string text = Printable(answer.at(key).get<std::string>());
    fmt::print("{}\n", Wrapped(fmt::format("{:<13} {}", title,
                                           text.empty() ? "-" : text),
                               TerminalColumns(), 14));
  };
  show("Manufacturer", "Manufacturer");
  show("Model", "Model");
  show("Name", "Name");
  return ExitCode::kDone;
}

}  // namespace

void AddChassisCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "chassis", "Show manufacturer, model and name of a server");
  const auto options = std::make_shared<Options>();
  AddBmcOptions(*command, options->bmc);
  command->add_flag("--json", options->json, "Print JSON instead of lines");
  command->callback(
      [options, &exit_code] { exit_code = RunChassis(*options); });
}

}  // namespace quorvane::tool
