// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace quorvane::tool {

std::size_t TerminalColumns() {
  constexpr std::size_t kDefaultColumns = 80;
  if (isatty(STDOUT_FILENO) != 1) return 0;
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0
             ? size.ws_col
             : kDefaultColumns;
}

bool ShowsColors(int descriptor) {
  const char* no_color = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return isatty(descriptor) == 1 &&
         (no_color == nullptr || *no_color == '\0') && terminal != nullptr &&
         std::string_view(terminal) != "dumb";
}

}  // namespace quorvane::tool
