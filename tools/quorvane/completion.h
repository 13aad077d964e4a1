// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMPLETION_H_
#define QUORVANE_TOOLS_QUORVANE_COMPLETION_H_

#include <string>

#include "tools/quorvane/base/cli_fwd.h"

namespace quorvane::tool {

/// The only argument that makes the tool print its completion. Used by the
/// build; not a user command.
constexpr const char* kCompletionArgument = "bash-completion";

/// A completion script for bash, with all commands and options of `app`.
std::string BashCompletion(const CLI::App& app);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMPLETION_H_
