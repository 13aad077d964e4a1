// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_TEXT_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_TEXT_H_

#include <string>
#include <string_view>

namespace quorvane::tool {

/// Makes untrusted text safe to show on a terminal or a page. Control
/// and format characters (C0, C1, DEL, the ones that change the writing
/// direction), spaces other than U+0020, line separators, invisible and
/// unassigned characters, and bytes that are not UTF-8 become visible escapes
/// such as \x1b or \u202e. All other characters stay.
std::string Printable(std::string_view text);

/// `Printable`, cut to `columns` of a terminal; "..." marks the cut.
std::string Excerpt(std::string_view text, std::size_t columns);

/// `Printable`, with "..." in place of its middle if it needs more than
/// `columns`: the end of a URI identifies the resource.
std::string Elided(std::string_view text, std::size_t columns);

/// The same JSON document, safe to show on a terminal: characters that
/// `Printable` escapes become \uXXXX, bytes that are not UTF-8 become U+FFFD.
std::string EscapedJson(std::string_view json);

/// "45 s", "2 min 5 s", "1 h 0 min", "3 d 4 h": two units at most.
std::string Duration(double seconds);

/// The part of a URL after scheme and host; any other text unchanged.
std::string PathOf(std::string_view uri);

/// `text` as one argument of a shell command: quoted if it needs that.
std::string ShellQuoted(std::string_view text);

/// `text` in lines shorter than `columns`, broken at spaces, all but the first
/// indented; 0 columns: one line. A word longer than a line is broken too, so
/// that untrusted text cannot start a line of the terminal.
std::string Wrapped(std::string_view text, std::size_t columns,
                    std::size_t indent);

/// How many columns `Printable(text)` takes on a terminal.
std::size_t Columns(std::string_view text);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_TEXT_H_
