// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/app.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string_view>
#include <vector>

#include "tools/quorvane/base/closest.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/worker/worker.h"

namespace quorvane::tool {
namespace {

// A program started without one of its three streams would hand that number to
// the first file it opens, and print its messages into it.
void OccupyStandardStreams() {
  int descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
    descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  }
  if (descriptor >= 0) close(descriptor);
}

ExitCode Complain(ExitCode code, std::string_view text) {
  fmt::print(stderr, "quorvane: {}\n", Printable(text));
  return code;
}

// What stands behind an option's name; which options shut each other out is
// said when it matters.
class HelpText : public CLI::Formatter {
 public:
  HelpText() { label("SUBCOMMAND", "COMMAND"); }
  std::string make_option_opts(const CLI::Option* option) const override {
    std::string text;
    if (!option->get_type_name().empty() && option->get_type_size() != 0) {
      text = ' ' + option->get_type_name();
    }
    if (!option->get_default_str().empty()) {
      text += '=' + option->get_default_str();
    }
    return option->get_required() ? text + " (required)" : text;
  }
};

// The command that the words name, and how it is called.
struct Named {
  const CLI::App* command;
  std::string name;
};

Named CommandNamed(const CLI::App& app) {
  Named named{&app, app.get_name()};
  while (!named.command->get_subcommands().empty()) {
    named.command = named.command->get_subcommands().front();
    named.name += ' ' + named.command->get_name();
  }
  return named;
}

// Of the words that nothing takes, one to tell. A word without a dash may be
// a password that strayed from its option, so it is told only where nothing but
// the name of a command can stand; so is what follows "=".
std::string WhatIsWrong(const CLI::App& command, const CLI::ParseError& error) {
  const bool wants_command = !command.get_subcommands({}).empty();
  std::vector<std::string> known;
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_group().empty()) known.push_back(option->get_name());
  }
  for (const CLI::App* one : command.get_subcommands({})) {
    known.push_back(one->get_name());
  }
  for (const std::string& word : command.remaining()) {
    const bool is_option = word.rfind("--", 0) == 0;
    if (!is_option && !wants_command) continue;
    const std::string told = word.substr(0, word.find('='));
    const std::string closest = ClosestOf(known, told);
    return fmt::format("There is no {} {}{}.", is_option ? "option" : "command",
                       told,
                       closest.empty() ? "" : "; did you mean " + closest);
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return "A word belongs to no option; put quotes around blanks.";
  }
  return wants_command ? "Name a command." : error.what() + std::string(".");
}

ExitCode ParseAndRun(int argc, char** argv) {
  ExitCode exit_code = ExitCode::kDone;
  const std::unique_ptr<CLI::App> app = MakeApp(exit_code);
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      app->exit(error);  // prints the help or the version
      return exit_code;
    }
    const auto [command, name] = CommandNamed(*app);
    return Complain(ExitCode::kUsage,
                    fmt::format("{} `{} --help` shows what there is.",
                                WhatIsWrong(*command, error), name));
  }
  return exit_code;
}

}  // namespace

std::unique_ptr<CLI::App> MakeApp(ExitCode& exit_code) {
  auto app = std::make_unique<CLI::App>(
      "Updates server firmware through a BMC that speaks Redfish.", "quorvane");
  app->set_version_flag("--version", "quorvane " QUORVANE_VERSION);
  app->require_subcommand(1);
  app->formatter(std::make_shared<HelpText>());
  app->footer(
      "`quorvane COMMAND --help` shows the options of a command, `man "
      "quorvane`\ntells more. `quorvane simulate` runs a machine to try them "
      "on.");
  AddUpdateCommand(*app, exit_code);
  AddInventoryCommand(*app, exit_code);
  AddChassisCommand(*app, exit_code);
  AddRulesCommands(*app, exit_code);
  AddReportCommand(*app, exit_code);
  AddSimulateCommand(*app, exit_code);
  for (CLI::App* command : app->get_subcommands({})) {
    command->group("Commands")->footer("");
    for (CLI::App* one : command->get_subcommands({})) one->group("Commands");
  }
  return app;
}

ExitCode RunTool(int argc, char** argv) {
  OccupyStandardStreams();
  // Neither a core dump nor a debugger of the same user shows a password.
  prctl(PR_SET_DUMPABLE, 0);
  try {
    if (argc == 2 && std::string_view(argv[1]) == kWorkerArgument) {
      return RunWorker();
    }
    return ParseAndRun(argc, argv);
  } catch (const ToolError& error) {
    return Complain(error.code(), error.what());
  } catch (const std::exception& error) {
    return Complain(ExitCode::kFailed, error.what());
  }
}

}  // namespace quorvane::tool
