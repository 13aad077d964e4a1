// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_PASSWORD_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_PASSWORD_H_

#include <string>

namespace quorvane::tool {

/// The first line of a file, without its line end; see `FirstLineOf`. Any bytes
/// but NUL and line breaks make a password, whatever their encoding.
/// @throws ToolError when the file or the line cannot be used.
std::string PasswordFromFile(const std::string& path);

/// The first line of standard input.
/// @throws ToolError when there is none.
std::string PasswordFromStdin();

/// Asks on the terminal without showing what is typed.
/// @param whose  e.g. "admin on 192.0.2.7".
/// @throws ToolError when there is no terminal, or on Ctrl-C.
std::string PasswordFromTerminal(const std::string& whose);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_PASSWORD_H_
