// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_RESULT_DOCUMENT_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_RESULT_DOCUMENT_H_

#include <optional>
#include <string>

#include "quorvane/update.h"
#include "tools/quorvane/commands/run_session.h"

namespace quorvane::tool {

/// What the library returned for the update and for the reboot by the tool.
struct Responses {
  std::optional<UpdateResponse> update = {};
  std::optional<UpdateResponse> reboot = {};
};

/// The document of --json and --result, with a final newline.
std::string ResultDocument(const RunSession& session, const Verdict& verdict,
                           ExitCode code, const Responses& responses);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_RESULT_DOCUMENT_H_
