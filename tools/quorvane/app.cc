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
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/completion.h"
#include "tools/quorvane/worker/worker.h"

namespace quorvane::tool {
namespace {

// If a standard stream is closed, the first file that the program opens gets
// its number, and messages would go into that file.
void EnsureStandardStreams() {
  int descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
    descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  }
  if (descriptor >= 0) close(descriptor);
}

ExitCode PrintError(ExitCode code, std::string_view text) {
  PrintMessage(text);
  return code;
}

// Shows the type of an option after its name, but not what it excludes: the
// error message names that.
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

// The command on the command line, and its full name ("quorvane rules check").
struct ParsedCommand {
  const CLI::App* command;
  std::string name;
};

ParsedCommand CommandOf(const CLI::App& app) {
  ParsedCommand parsed{&app, app.get_name()};
  while (!parsed.command->get_subcommands().empty()) {
    parsed.command = parsed.command->get_subcommands().front();
    parsed.name += ' ' + parsed.command->get_name();
  }
  return parsed;
}

// An empty value is usually an unset variable of a script. It must not have the
// same effect as a missing option.
void RejectEmptyValues(CLI::App& command) {
  for (CLI::Option* option : command.get_options()) {
    if (option->get_type_size() == 0) continue;  // a flag
    // In contrast to check(), this comes before the other validators.
    option->transform(CLI::Validator(
        [](std::string& value) {
          return value.empty() ? std::string("the value is empty")
                               : std::string();
        },
        ""));
  }
  for (CLI::App* subcommand : command.get_subcommands({})) {
    RejectEmptyValues(*subcommand);
  }
}

std::vector<std::string> NamesIn(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_group().empty()) names.push_back(option->get_name());
  }
  for (const CLI::App* subcommand : command.get_subcommands({})) {
    names.push_back(subcommand->get_name());
  }
  return names;
}

// Why the command line cannot be parsed. A word without dashes may be a
// misplaced password, so the text repeats it only where a command must be; it
// never repeats what follows "=".
std::string UsageError(const CLI::App& command, const CLI::ParseError& error) {
  const bool needs_command = !command.get_subcommands({}).empty();
  for (const std::string& word : command.remaining()) {
    const bool is_option = word.rfind("--", 0) == 0;
    if (!is_option && !needs_command) continue;
    const std::string name = word.substr(0, word.find('='));
    const std::string closest = ClosestOf(NamesIn(command), name);
    return fmt::format(
        "Unknown {} \"{}\"{}", is_option ? "option" : "command", name,
        closest.empty() ? "." : fmt::format("; did you mean \"{}\"?", closest));
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return "Unexpected argument; quote values that contain spaces.";
  }
  return needs_command ? "A command is missing."
                       : error.what() + std::string(".");
}

// The parser takes the argument after "--option=" for its value.
void RequireValues(const std::vector<std::string_view>& arguments) {
  for (const std::string_view argument : arguments) {
    if (argument.rfind("--", 0) != 0 ||
        argument.find('=') != argument.size() - 1) {
      continue;
    }
    throw ToolError(ExitCode::kUsage,
                    fmt::format("{}: the value is empty.",
                                argument.substr(0, argument.size() - 1)));
  }
}

ExitCode ParseAndRun(int argc, char** argv) {
  ExitCode exit_code = ExitCode::kDone;
  RequireValues({argv, argv + argc});
  const std::unique_ptr<CLI::App> app = MakeApp(exit_code);
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      app->exit(error);  // prints the help or the version
      return exit_code;
    }
    const auto [command, name] = CommandOf(*app);
    return PrintError(ExitCode::kUsage,
                      fmt::format("{} Run `{} --help` for usage.",
                                  UsageError(*command, error), name));
  }
  return exit_code;
}

}  // namespace

std::unique_ptr<CLI::App> MakeApp(ExitCode& exit_code) {
  auto app = std::make_unique<CLI::App>(
      "Updates server firmware through the Redfish interface of a BMC.",
      "quorvane");
  app->set_version_flag("--version", "quorvane " QUORVANE_VERSION);
  app->require_subcommand(1);
  app->formatter(std::make_shared<HelpText>());
  app->footer(
      "Run `quorvane COMMAND --help` for the options of a command.\n"
      "See " QUORVANE_MANUAL
      " for details.\n"
      "To try commands without hardware, run `quorvane simulate`.");
  AddUpdateCommand(*app, exit_code);
  AddPlanCommand(*app, exit_code);
  AddTasksCommands(*app, exit_code);
  AddInventoryCommand(*app, exit_code);
  AddChassisCommand(*app, exit_code);
  AddRulesCommands(*app, exit_code);
  AddWatchCommand(*app, exit_code);
  AddRestartCommand(*app, exit_code);
  AddTrustCommand(*app, exit_code);
  AddReportCommand(*app, exit_code);
  AddSimulateCommand(*app, exit_code);
  RejectEmptyValues(*app);
  for (CLI::App* command : app->get_subcommands({})) {
    command->group("Commands")->footer("");
    for (CLI::App* subcommand : command->get_subcommands({})) {
      subcommand->group("Commands");
    }
  }
  return app;
}

ExitCode RunTool(int argc, char** argv) {
  EnsureStandardStreams();
  // Core dumps and debuggers of the same user must not show a password.
  prctl(PR_SET_DUMPABLE, 0);
  try {
    if (argc == 3 && std::string_view(argv[1]) == kWorkerArgument) {
      return RunWorker(argv[2]);
    }
    if (argc == 2 && std::string_view(argv[1]) == kCompletionArgument) {
      ExitCode unused = ExitCode::kDone;
      fmt::print("{}", BashCompletion(*MakeApp(unused)));
      return ExitCode::kDone;
    }
    return ParseAndRun(argc, argv);
  } catch (const ToolError& error) {
    return PrintError(error.code(), error.what());
  } catch (const std::exception& error) {
    return PrintError(ExitCode::kFailed, error.what());
  }
}

}  // namespace quorvane::tool
