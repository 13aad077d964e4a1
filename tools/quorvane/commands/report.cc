// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/view/report.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "tools/quorvane/base/distinct_files.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
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

ExitCode RunReport(const ReportOptions& options) {
  RequireDistinct(
      {{"LOG", options.log}, {"--html", options.html, /*is_written=*/true}});
  const Report report = ReadReport(ReadRegularOrStdin(options.log, "log"));
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
    fmt::print("{}", TextReport(report, TerminalColumns(),
                                ShowsColors(STDOUT_FILENO)));
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
