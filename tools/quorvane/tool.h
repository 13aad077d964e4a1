// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_TOOL_H_
#define QUORVANE_TOOLS_QUORVANE_TOOL_H_

#include <CLI/CLI.hpp>
#include <memory>
#include <stdexcept>
#include <string>

#include "tools/quorvane/exit_code.h"

namespace quorvane::tool {

/// An error with its exit code. The text says what to do next.
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitCode code, const std::string& text)
      : std::runtime_error(text), code_(code) {}
  [[nodiscard]] ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

/// The command line with all commands. A command that is parsed runs at once
/// and leaves its result in `exit_code`, which must outlive the application.
std::unique_ptr<CLI::App> MakeApp(ExitCode& exit_code);

/// Parses the command line, runs the command and prints what went wrong.
ExitCode RunTool(int argc, char** argv);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_TOOL_H_
