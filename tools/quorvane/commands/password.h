// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_PASSWORD_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_PASSWORD_H_

#include <string>

namespace quorvane::tool {

// A password may contain any bytes except NUL and line breaks, in any encoding.
// Not at its start, though: the byte order mark of UTF-8, which editors add. A
// carriage return before the line break is not part of it. A space or tab at
// its end is, and a warning reports it.

/// The first line of a file, see `FirstLineOf`.
/// @throws ToolError if the file or the line cannot be used.
std::string PasswordFromFile(const std::string& path);

/// The first line of standard input.
/// @throws ToolError if there is none.
std::string PasswordFromStdin();

/// Prompts on the terminal and does not show what the user types.
/// @param whose  e.g. "admin on 192.0.2.7".
/// @throws ToolError if there is no terminal, and on Ctrl-C.
std::string PasswordFromTerminal(const std::string& whose);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_PASSWORD_H_
