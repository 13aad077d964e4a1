// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace quorvane::tool {

std::size_t TerminalColumns() {
  constexpr std::size_t kDefaultColumns = 80;
  if (isatty(STDOUT_FILENO) != 1) return 0;
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0
             ? size.ws_col
             : kDefaultColumns;
}

}  // namespace quorvane::tool
