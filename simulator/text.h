// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_SIMULATOR_TEXT_H_
#define QUORVANE_SIMULATOR_TEXT_H_

#include <string>
#include <string_view>

namespace quorvane::simulator {

/// ASCII only, as header fields and URI schemes compare.
bool EqualsIgnoringCase(std::string_view a, std::string_view b);

/// Without the blanks and tabs at both ends; a view into `text`.
std::string_view Trim(std::string_view text);

/// Control characters and bytes above 0x7e become \xNN, so that nothing a
/// client sends can move a terminal's cursor.
std::string Printable(std::string_view text);

/// `text` as one word of a POSIX shell, quoted where necessary. Control
/// characters and bytes above 0x7e are escaped as in bash: $'\x1b'.
std::string ShellWord(std::string_view text);

/// SHA-256 of `bytes`, 64 lower-case hexadecimal digits.
std::string Sha256(std::string_view bytes);

/// Base64 with padding (RFC 4648, section 4).
std::string Base64(std::string_view bytes);

}  // namespace quorvane::simulator

#endif  // QUORVANE_SIMULATOR_TEXT_H_
