// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_TERMINAL_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_TERMINAL_H_

#include <cstddef>

namespace quorvane::tool {

/// The width of the terminal in columns; 0 if standard output is not a
/// terminal.
std::size_t TerminalColumns();

/// Whether `descriptor` is a terminal that shows colors, and NO_COLOR is unset.
bool ShowsColors(int descriptor);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_TERMINAL_H_
