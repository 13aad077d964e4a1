// SPDX-License-Identifier: Apache-2.0
// What the commands print and write that follow a run to its end.
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_RUN_OUTPUT_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_RUN_OUTPUT_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/quorvane/base/cli_fwd.h"
#include "tools/quorvane/base/distinct_files.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/result_document.h"
#include "tools/quorvane/commands/run_session.h"

namespace quorvane::tool {

struct OutputOptions {
  std::string result = {};  ///< File for the result.
  std::string events = {};  ///< See `EventStream`.
  bool json = false;        ///< The result on standard output.
  bool quiet = false;
  bool plain = false;
  bool stop_on_hangup = false;
};

/// Adds the options to `command`. `options` must outlive it.
void AddOutputOptions(CLI::App& command, OutputOptions& options);

/// The part of the settings that the options decide.
RunSession::Settings SettingsFrom(const OutputOptions& options);

/// The output of one command.
class RunOutput {
 public:
  /// Checks the files and removes the result of an earlier run. With --json,
  /// standard output becomes standard error until the result is written.
  /// @param others  Files of the command's own options.
  /// @throws ToolError
  RunOutput(const BmcOptions& bmc, const OutputOptions& options,
            std::vector<NamedFile> others);

  /// Takes the steps of a run, ends it, and prints and writes its verdict.
  /// @param steps  Fills in what the library returned.
  /// @throws ToolError what `steps` throws, after it wrote the result.
  ExitCode RunToEnd(RunSession& session,
                    const std::function<void(Responses&)>& steps);

  /// Prints and writes a verdict.
  /// @param log  Name of the log of `run`.
  /// @param is_recorded  Whether the log is complete.
  ExitCode Print(const Run& run, const Verdict& verdict, const std::string& log,
                 bool is_recorded, const Responses& responses);

 private:
  bool Save(const std::string& document) const;

  const BmcOptions& bmc_;
  const OutputOptions& options_;
  std::optional<StandardOutputAsError> output_ = {};
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_RUN_OUTPUT_H_
