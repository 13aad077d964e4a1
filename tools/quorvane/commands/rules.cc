// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>
#include <sys/mman.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "quorvane/config.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/rules/check.h"
#include "tools/quorvane/rules/explain.h"
#include "tools/quorvane/rules/schema.h"

namespace quorvane::tool {
namespace {

// The rules as the library loads them. The library reads only regular files, so
// what a pipe contained is loaded from memory.
// @param text  The content of the file `path`.
Config Load(const std::string& path, const std::string& text) {
  std::error_code unknown;
  if (std::filesystem::is_regular_file(path, unknown)) {
    return LoadConfig(path);
  }
  const Descriptor copy(memfd_create("rules", MFD_CLOEXEC));
  if (!copy.IsOpen() || !WriteAll(copy.get(), text)) {
    throw std::runtime_error("Cannot copy " + path + ": " +
                             std::generic_category().message(errno));
  }
  const std::string copy_path = fmt::format("/proc/self/fd/{}", copy.get());
  try {
    return LoadConfig(copy_path);
  } catch (const std::runtime_error& error) {
    std::string reason = error.what();
    if (const auto at = reason.find(copy_path); at != std::string::npos) {
      reason.replace(at, copy_path.size(), path);
    }
    throw std::runtime_error(reason);
  }
}

struct RulesOptions {
  std::string file;
  bool strict = false;
};

// The library may reject a file for a reason that the checks do not know.
std::vector<Finding> FindingsIn(const std::string& path) {
  const std::string text = ReadRegularOrStdin(path, "rules file");
  std::vector<Finding> findings = CheckRules(text);
  if (HasErrors(findings)) return findings;
  try {
    static_cast<void>(Load(path, text));
  } catch (const std::runtime_error& error) {
    findings.insert(
        findings.begin(),
        {.severity = Severity::kError,
         .text = std::string("The file does not load: ") + error.what()});
  }
  return findings;
}

ExitCode CheckFile(const RulesOptions& options) {
  const std::vector<Finding> findings = FindingsIn(options.file);
  for (const Finding& finding : findings) {
    fmt::print("{}\n",
               LineOf(finding, options.file, ShowsColors(STDOUT_FILENO)));
  }
  if (findings.empty()) {
    fmt::print("{}: no problems found.\n", Printable(options.file));
  }
  return HasErrors(findings) || (options.strict && !findings.empty())
             ? ExitCode::kFailed
             : ExitCode::kDone;
}

ExitCode ExplainFile(const RulesOptions& options) {
  try {
    fmt::print("{}", ExplainRules(
                         Load(options.file,
                              ReadRegularOrStdin(options.file, "rules file"))));
  } catch (const std::runtime_error& error) {
    throw ToolError(ExitCode::kUsage, RulesError(options.file, error.what()));
  }
  return ExitCode::kDone;
}

ExitCode PrintSchema() {
  fmt::print("{}", kRulesSchema);
  return ExitCode::kDone;
}

}  // namespace

void AddRulesCommands(CLI::App& app, ExitCode& exit_code) {
  auto* rules = app.add_subcommand(
      "rules", "Check and explain a rules file, or draft one");
  rules->require_subcommand(1);
  const auto options = std::make_shared<RulesOptions>();
  const auto add = [&](const char* name, const char* description,
                       ExitCode (*run)(const RulesOptions&)) {
    auto* command = rules->add_subcommand(name, description);
    command->add_option("FILE", options->file, "The rules file")
        ->required()
        ->type_name("");
    command->callback(
        [options, run, &exit_code] { exit_code = run(*options); });
    return command;
  };
  add("check", "Report the errors and warnings of a rules file", CheckFile)
      ->add_flag("--strict", options->strict,
                 "Exit with 1 also if there are only warnings");
  add("explain", "Describe what an update does with a rules file", ExplainFile);
  rules->add_subcommand("schema", "Print the JSON Schema of rules files")
      ->callback([&exit_code] { exit_code = PrintSchema(); });
  AddRulesDraftCommand(*rules, exit_code);
}

}  // namespace quorvane::tool
