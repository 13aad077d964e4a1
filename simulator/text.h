// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_TEXT_H_
#define QUORVANE_SIMULATOR_TEXT_H_

#include <string>
#include <string_view>

namespace quorvane::simulator {

/// Ignores the case of ASCII letters only, as for header names and URI schemes.
bool EqualsIgnoringCase(std::string_view a, std::string_view b);

/// `text` without spaces and tabs at both ends, as a view.
std::string_view Trim(std::string_view text);

/// Control characters and bytes above 0x7e become \xNN, so that a client cannot
/// control the terminal.
std::string Printable(std::string_view text);

/// `text` as a single word of a POSIX shell, quoted if necessary. Control
/// characters and bytes above 0x7e are escaped as in bash: $'\x1b'.
std::string ShellWord(std::string_view text);

/// SHA-256 of `bytes` as 64 lowercase hexadecimal digits.
std::string Sha256(std::string_view bytes);

/// Base64 with padding (RFC 4648, section 4).
std::string Base64(std::string_view bytes);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_TEXT_H_
