// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_RESULT_DOCUMENT_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_RESULT_DOCUMENT_H_

#include <optional>
#include <string>

#include "quorvane/update.h"
#include "tools/quorvane/run/run.h"
#include "tools/quorvane/run/verdict.h"

namespace quorvane::tool {

/// What the library returned for the update and for the reboot by the tool.
struct Responses {
  std::optional<UpdateResponse> update = {};
  std::optional<UpdateResponse> reboot = {};
};

/// The document of --json and --result, with a final newline.
/// @param log  Name of the log of `run`.
std::string ResultDocument(const Run& run, const std::string& log,
                           const Verdict& verdict, ExitCode code,
                           const Responses& responses);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_RESULT_DOCUMENT_H_
