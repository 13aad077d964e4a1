// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/redfish/tasks.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_call.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/view/plan_text.h"

namespace quorvane::tool {
namespace {

struct TaskOptions {
  BmcOptions bmc;
  std::string uri;
  bool json = false;
};

std::string DocumentOf(const nlohmann::json& json) {
  return EscapedJson(json.dump(2, ' ', false,
                               nlohmann::json::error_handler_t::replace)) +
         "\n";
}

Layout TerminalLayout() {
  return {.columns = TerminalColumns(),
          .is_colored = ShowsColors(STDOUT_FILENO)};
}

// Why tasks are missing from the list.
std::string ReasonForMissing(const ResourceCache& cache,
                             const BmcTasks& tasks) {
  for (const auto& [uri, resource] : cache.resources()) {
    // A finished task can disappear while the list is read.
    const bool is_gone =
        uri != tasks.collection && PresenceOf(resource) == Presence::kAbsent;
    if (is_gone || ObjectIn(resource)) continue;
    return fmt::format("{} returned {}", uri,
                       resource.status == 0
                           ? "no response"
                           : fmt::format("HTTP {}", resource.status));
  }
  return fmt::format("{} lists more tasks than are shown", tasks.collection);
}

ExitCode RunTasks(const TaskOptions& options) {
  RequireDistinctFiles(options.bmc);
  BmcReader reader(options.bmc, "tasks");
  ResourceCache cache(reader);
  const BmcTasks tasks = ReadTasks(cache, TaskServiceUri(cache));
  PrintText(options.json ? DocumentOf(ToJson(tasks))
                         : DescribeTasks(tasks, TerminalLayout()));
  if (tasks.is_complete) return ExitCode::kDone;
  PrintMessage(fmt::format(
      "The list of tasks of {} is incomplete: {}. Run the command again, with "
      "--log FILE to see the responses.",
      options.bmc.bmc, ReasonForMissing(cache, tasks)));
  return ExitCode::kUnknown;
}

ExitCode RunTask(const TaskOptions& options) {
  RequireDistinctFiles(options.bmc);
  BmcReader reader(options.bmc, "task");
  ResourceCache cache(reader);
  const auto body = cache.ObjectAt(options.uri);
  if (!body) {
    const Resource& resource = cache.At(options.uri);
    throw ToolError(
        ExitCode::kFailed,
        fmt::format(
            "Cannot read the task {} of {}: {}. {}", options.uri,
            options.bmc.bmc,
            !resource.reason.empty() ? resource.reason
            : resource.status >= 300 ? fmt::format("HTTP {}", resource.status)
                                     : "the response is not a JSON object",
            PresenceOf(resource) == Presence::kAbsent
                ? "The BMC has deleted it, or never had it; `quorvane tasks` "
                  "lists those that it has."
                : "Run the command again, with --log FILE to see the "
                  "response."));
  }
  const BmcTask task = TaskFrom(options.uri, *body);
  PrintText(options.json ? DocumentOf(ToJson(task))
                         : DescribeTask(task, TerminalLayout()));
  return ExitCode::kDone;
}

}  // namespace

void AddTasksCommands(CLI::App& app, ExitCode& exit_code) {
  const auto add = [&](const char* name, const char* description,
                       ExitCode (*run)(const TaskOptions&)) {
    auto* command = app.add_subcommand(name, description);
    const auto options = std::make_shared<TaskOptions>();
    AddBmcOptions(*command, options->bmc);
    command->add_flag("--json", options->json, "Print JSON");
    command->callback(
        [options, run, &exit_code] { exit_code = run(*options); });
    return std::make_pair(command, options);
  };
  add("tasks", "List the tasks of a BMC", RunTasks);
  const auto [command, options] =
      add("task", "Show a task of a BMC and its messages", RunTask);
  command
      ->add_option("URI", options->uri, "The task, as `quorvane tasks` lists")
      ->required()
      ->check(CLI::Validator(TaskUriFault, ""))
      ->type_name("");
}

}  // namespace quorvane::tool
