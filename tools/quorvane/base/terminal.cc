// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

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

void PrintText(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void PrintMessage(std::string_view text) {
  const std::string line = "quorvane: " + Printable(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

bool IsSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

bool IsDrawable(int descriptor) {
  const char* terminal = std::getenv("TERM");
  return isatty(descriptor) == 1 && terminal != nullptr &&
         std::string_view(terminal) != "dumb";
}

bool ShowsColors(int descriptor) {
  return IsDrawable(descriptor) && !IsSet("NO_COLOR");
}

StandardOutputAsError::StandardOutputAsError() {
  std::fflush(stdout);
  output_ = Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

StandardOutputAsError::~StandardOutputAsError() {
  std::fflush(stdout);
  dup2(output_.get(), STDOUT_FILENO);
}

bool StandardOutputAsError::Write(std::string_view text) const {
  return WriteAll(output_.get(), text);
}

}  // namespace quorvane::tool
