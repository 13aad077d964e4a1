// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_TEXT_H_
#define QUORVANE_TOOLS_QUORVANE_TEXT_H_

#include <optional>
#include <string>
#include <string_view>

namespace quorvane::tool {

/// Makes a text that others wrote safe to show on a terminal or a page: C0 and
/// C1 controls, DEL, the controls that reverse the direction of writing
/// (Unicode Annex 9) and bytes that are no UTF-8 become visible escapes such as
/// \x1b or \u202e. Everything else stays.
std::string Printable(std::string_view text);

/// `Printable`, cut to `most` bytes at a character's border; "..." tells.
std::string Excerpt(std::string_view text, std::size_t most);

/// "45 s", "2 min 5 s", "1 h 0 min", "3 d 4 h": two units at most.
std::string Duration(double seconds);

/// A URL without scheme and host; anything else as it is.
std::string PathOf(std::string_view uri);

/// `text` in lines shorter than `columns`, broken at blanks, all but the first
/// indented; 0 columns: one line. A longer word stays whole.
std::string Wrapped(std::string_view text, std::size_t columns,
                    std::size_t indent);

/// A file's bytes; nothing, and errno, when it cannot be read.
std::optional<std::string> FileText(const std::string& path);

/// The columns a terminal needs for `text`, a character each.
std::size_t Columns(std::string_view text);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_TEXT_H_
