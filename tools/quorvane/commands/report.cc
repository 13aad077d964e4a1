// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/view/report.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <memory>
#include <string>
#include <system_error>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/commands.h"

namespace quorvane::tool {
namespace {

struct ReportOptions {
  std::string log;
  std::string html;
  bool json = false;
};

std::string ReadLog(const std::string& path) {
  if (auto text = FileText(path)) return *std::move(text);
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot read the log {}: {}. Check its name and mode.", path,
                  std::generic_category().message(errno)));
}

ExitCode RunReport(const ReportOptions& options) {
  const Report report = ReadReport(ReadLog(options.log));
  if (report.events.empty()) {
    throw ToolError(ExitCode::kUsage,
                    "Cannot report on " + options.log +
                        ": it is not a Quorvane log. Use the file that --log "
                        "named, or that the command printed after \"Log:\".");
  }
  if (!options.html.empty()) WriteDocument(options.html, HtmlReport(report));
  if (options.json) {
    fmt::print("{}\n", EscapedJson(JsonReport(report)));
  } else if (options.html.empty()) {
    fmt::print("{}", TextReport(report, TerminalColumns(), HasColor()));
  } else {
    fmt::print("Report: {}\n", Printable(options.html));
  }
  return ExitCode::kDone;
}

}  // namespace

void AddReportCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "report", "Summarize a finished or unfinished run from its log");
  const auto options = std::make_shared<ReportOptions>();
  command->add_option("LOG", options->log, "The log of the run")
      ->required()
      ->type_name("");
  command
      ->add_option("--html", options->html,
                   "Write an HTML page with a timeline")
      ->type_name("FILE");
  command->add_flag("--json", options->json, "Print the events as JSON");
  command->callback([options, &exit_code] { exit_code = RunReport(*options); });
}

}  // namespace quorvane::tool
