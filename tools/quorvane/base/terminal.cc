// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {

std::size_t TerminalColumns() {
  constexpr std::size_t kDefaultColumns = 80;
  if (isatty(STDOUT_FILENO) != 1) return 0;
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0
             ? size.ws_col
             : kDefaultColumns;
}

void PrintMessage(std::string_view text) {
  const std::string line = "quorvane: " + Printable(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace quorvane::tool
