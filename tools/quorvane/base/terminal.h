// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_TERMINAL_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_TERMINAL_H_

#include <cstddef>
#include <string_view>

#include "tools/quorvane/base/descriptor.h"

namespace quorvane::tool {

/// The width of the terminal in columns; 0 if standard output is not a
/// terminal.
std::size_t TerminalColumns();

/// Prints `text` on standard output. A closed terminal does not end the
/// program.
void PrintText(std::string_view text);

/// Prints "quorvane: TEXT" as one line on standard error. A closed terminal or
/// a full disk does not end the program.
void PrintMessage(std::string_view text);

/// Whether an environment variable is set and not empty.
bool IsSet(const char* variable);

/// Whether `descriptor` is a terminal that can move its cursor.
bool IsDrawable(int descriptor);

/// Whether `descriptor` is a terminal that shows colors, and NO_COLOR is unset.
bool ShowsColors(int descriptor);

/// While it exists, everything that is printed to standard output goes to
/// standard error, so that a program reads nothing but its document.
class StandardOutputAsError {
 public:
  StandardOutputAsError();
  ~StandardOutputAsError();
  StandardOutputAsError(const StandardOutputAsError&) = delete;
  StandardOutputAsError& operator=(const StandardOutputAsError&) = delete;

  /// Writes to the real standard output.
  /// @return Whether all of it was written.
  [[nodiscard]] bool Write(std::string_view text) const;

 private:
  Descriptor output_;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_TERMINAL_H_
