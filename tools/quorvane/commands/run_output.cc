// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/run_output.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <system_error>
#include <utility>

#include "logging/redact.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/view/firmware_table.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

void RemoveOldResult(const std::string& path) {
  CheckDocumentPath(path);
  std::error_code error;
  if (fs::is_regular_file(path, error)) fs::remove(path, error);
  if (!error || error == std::errc::no_such_file_or_directory) return;
  throw ToolError(ExitCode::kUsage,
                  fmt::format("Cannot replace {}: {}. Use a file of your own.",
                              path, error.message()));
}

// The run is over, so an error is printed and changes nothing else.
bool SaveResult(const std::string& path, const std::string& document) {
  try {
    WriteDocument(path, document);
    return true;
  } catch (const ToolError& error) {
    PrintMessage(error.what());
    return false;
  }
}

// @param reboot  Whether the system was rebooted, and by whom.
void PrintResponse(const UpdateResponse& response, const char* reboot) {
  const auto or_none = [](const std::string& text) {
    return text.empty() ? std::string("none") : Excerpt(text, 400);
  };
  const std::string percent =
      response.percent_complete < 0
          ? std::string()
          : fmt::format(" {} %", response.percent_complete);
  const std::string line = fmt::format(
      "Library: accepted {}, HTTP {}, task {}, state {}{}, reboot {}: {} (its "
      "last step only; the outcome counts)",
      response.accepted ? "yes" : "no", response.http_status,
      RedactUri(or_none(response.task_uri)), or_none(response.task_state),
      percent, reboot, or_none(response.message));
  constexpr std::size_t kIndent = 9;
  PrintText(Wrapped(line, TerminalColumns(), kIndent) + "\n");
}

}  // namespace

void AddOutputOptions(CLI::App& command, OutputOptions& options) {
  command
      .add_option("--result", options.result,
                  "Write the result to this file, as JSON")
      ->type_name("FILE");
  command
      .add_option("--events", options.events,
                  "Write the events of the run to this file while it goes on, "
                  "as JSON Lines; - for standard output")
      ->type_name("FILE");
  command.add_flag("--json", options.json,
                   "Print the result as JSON, and everything else to standard "
                   "error");
  command.add_flag("--stop-on-hangup", options.stop_on_hangup,
                   "Stop if the terminal is closed; the default is to "
                   "continue without a display");
  command.add_flag("--quiet", options.quiet,
                   "Show only one line with the outcome");
  command.add_flag("--plain", options.plain,
                   "Print lines instead of the live display");
}

RunSession::Settings SettingsFrom(const OutputOptions& options) {
  return {.events = options.events,
          .style = ChooseStyle(options.quiet, options.plain),
          .on_hangup = options.stop_on_hangup ? Signals::OnHangup::kStop
                                              : Signals::OnHangup::kContinue};
}

RunOutput::RunOutput(const BmcOptions& bmc, const OutputOptions& options,
                     std::vector<NamedFile> others)
    : bmc_(bmc), options_(options) {
  if (options.json && options.events == "-") {
    throw ToolError(ExitCode::kUsage,
                    "Cannot write the events to standard output: --json prints "
                    "the result there. Use --events with a file.");
  }
  others.push_back({"--events", options.events, /*is_written=*/true});
  others.push_back({"--result", options.result, /*is_written=*/true});
  RequireDistinctFiles(bmc, std::move(others));
  if (!options.result.empty()) RemoveOldResult(options.result);
  if (options.json) output_.emplace();
}

bool RunOutput::Save(const std::string& document) const {
  const bool is_saved =
      options_.result.empty() || SaveResult(options_.result, document);
  return (!output_ || output_->Write(document)) && is_saved;
}

ExitCode RunOutput::RunToEnd(RunSession& session,
                             const std::function<void(Responses&)>& steps) {
  Responses responses;
  try {
    steps(responses);
  } catch (const ToolError& error) {
    const Verdict verdict = session.Stop(error.what());
    Save(ResultDocument(session.run(), session.log().path(), verdict,
                        error.code(), responses));
    throw;
  }
  const Verdict verdict = session.Finish();
  return Print(session.run(), verdict, session.log().path(),
               session.IsRecorded(), responses);
}

ExitCode RunOutput::Print(const Run& run, const Verdict& verdict,
                          const std::string& log, bool is_recorded,
                          const Responses& responses) {
  const bool is_complete =
      Save(ResultDocument(run, log, verdict, ExitCodeOf(verdict, is_recorded),
                          responses)) &&
      is_recorded;
  const ExitCode code = ExitCodeOf(verdict, is_complete);
  if (options_.quiet) {
    PrintText(fmt::format("{}: {}. {}{}{}\n", Printable(bmc_.bmc),
                          NameOf(verdict.outcome), Printable(verdict.headline),
                          verdict.cause.empty() ? "" : " ",
                          Excerpt(verdict.cause, 2000)));
    return code;
  }
  PrintText(OutcomeText(verdict, bmc_.bmc, TerminalColumns(),
                        ShowsColors(STDOUT_FILENO)) +
            FirmwareText(run.firmware, TerminalColumns()));
  if (responses.update) {
    const bool by_tool = responses.reboot && responses.reboot->reboot_performed;
    PrintResponse(*responses.update, by_tool ? "by the tool"
                                     : responses.update->reboot_performed
                                         ? "yes"
                                         : "no");
  }
  PrintText("Log:     " + Printable(log) + "\n");
  return code;
}

}  // namespace quorvane::tool
