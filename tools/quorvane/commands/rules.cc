// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>
#include <sys/mman.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "quorvane/config.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/base/error.h"
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
// @param text  The content of the file `path`; nothing if it cannot be read.
Config Load(const std::string& path, const std::optional<std::string>& text) {
  std::error_code unknown;
  if (!text || std::filesystem::is_regular_file(path, unknown)) {
    return LoadConfig(path);
  }
  const Descriptor copy(memfd_create("rules", MFD_CLOEXEC));
  if (!copy.IsOpen() || !WriteAll(copy.get(), *text)) {
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

// The error of the library has no line number; the findings do.
ExitCode CheckFile(const std::string& path) {
  const auto text = FileText(path);
  ExitCode code = ExitCode::kDone;
  try {
    static_cast<void>(Load(path, text));
  } catch (const std::runtime_error& error) {
    code = ExitCode::kUsage;
    fmt::print("{}: cannot be loaded: {}\n", Printable(path),
               Printable(error.what()));
  }
  const auto findings = text ? CheckRules(*text) : std::vector<Finding>();
  for (const Finding& finding : findings) {
    if (code == ExitCode::kDone) code = ExitCode::kFailed;
    fmt::print("{}:{}:{}: {}\n", Printable(path), finding.position.line,
               finding.position.column, Printable(finding.text));
  }
  if (code == ExitCode::kDone) {
    fmt::print("{}: no problems found.\n", Printable(path));
  }
  return code;
}

ExitCode ExplainFile(const std::string& path) {
  try {
    fmt::print("{}", ExplainRules(Load(path, FileText(path))));
  } catch (const std::runtime_error& error) {
    throw ToolError(ExitCode::kUsage, RulesError(path, error.what()));
  }
  return ExitCode::kDone;
}

ExitCode PrintSchema() {
  fmt::print("{}", kRulesSchema);
  return ExitCode::kDone;
}

}  // namespace

void AddRulesCommands(CLI::App& app, ExitCode& exit_code) {
  auto* rules = app.add_subcommand("rules", "Check and explain a rules file");
  rules->require_subcommand(1);
  const auto path = std::make_shared<std::string>();
  const auto add = [&](const char* name, const char* description,
                       ExitCode (*run)(const std::string& path)) {
    auto* command = rules->add_subcommand(name, description);
    command->add_option("FILE", *path, "The rules file")
        ->required()
        ->type_name("");
    command->callback([path, run, &exit_code] { exit_code = run(*path); });
  };
  add("check", "Load a rules file and report its problems", CheckFile);
  add("explain", "Describe what an update does with a rules file", ExplainFile);
  rules->add_subcommand("schema", "Print the JSON Schema of rules files")
      ->callback([&exit_code] { exit_code = PrintSchema(); });
}

}  // namespace quorvane::tool
