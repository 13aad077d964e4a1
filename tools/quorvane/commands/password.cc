// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <iostream>
#include <string_view>
#include <utility>

#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

// The password in `line`, which comes from `source`.
std::string PasswordIn(std::string line, const std::string& source) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.empty()) {
    throw ToolError(ExitCode::kUsage,
                    "No password in the first line of " + source +
                        "; write it there, followed by a line end.");
  }
  constexpr std::string_view kUnusable("\0\r\n", 3);
  if (line.find_first_of(kUnusable) != std::string::npos) {
    throw ToolError(ExitCode::kUsage,
                    "The password from " + source +
                        " cannot be used: it contains a NUL byte or a carriage "
                        "return. Remove it.");
  }
  return line;
}

// Neither shows what is typed nor lets Ctrl-C end the program while the
// terminal keeps quiet: the key arrives as a byte instead.
class QuietTerminal {
 public:
  explicit QuietTerminal(int terminal) : terminal_(terminal) {
    if (tcgetattr(terminal_, &before_) != 0) return;
    termios quiet = before_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
    quiet.c_cc[VMIN] = 1;
    quiet.c_cc[VTIME] = 0;
    changed_ = tcsetattr(terminal_, TCSAFLUSH, &quiet) == 0;
  }
  ~QuietTerminal() {
    if (changed_) tcsetattr(terminal_, TCSAFLUSH, &before_);
  }
  QuietTerminal(const QuietTerminal&) = delete;
  QuietTerminal& operator=(const QuietTerminal&) = delete;

  [[nodiscard]] bool IsQuiet() const { return changed_; }

 private:
  int terminal_;
  termios before_{};
  bool changed_ = false;
};

std::string ReadTyped(int terminal) {
  constexpr char kInterrupt = 3;
  constexpr char kEndOfInput = 4;
  constexpr char kEraseLine = 21;
  constexpr char kErase = 127;
  std::string typed;
  char key = 0;
  while (read(terminal, &key, 1) == 1 && key != '\n' && key != '\r' &&
         key != kEndOfInput) {
    if (key == kInterrupt) {
      throw ToolError(ExitCode::kInterrupted, "Interrupted; nothing was done.");
    }
    if (key == kEraseLine) {
      typed.clear();
    } else if (key == kErase || key == '\b') {
      if (!typed.empty()) typed.pop_back();
    } else {
      typed += key;
    }
  }
  return typed;
}

}  // namespace

std::string PasswordFromFile(const std::string& path) {
  return PasswordIn(FirstLineOf(path, "password"), path);
}

std::string PasswordFromStdin() {
  std::string line;
  std::getline(std::cin, line);
  return PasswordIn(std::move(line), "standard input");
}

std::string PasswordFromTerminal(const std::string& whose) {
  const Descriptor terminal(open("/dev/tty", O_RDWR | O_CLOEXEC));
  if (!terminal.IsOpen()) {
    throw ToolError(ExitCode::kUsage,
                    "No password: give --password-file FILE or "
                    "--password-stdin, or run on a terminal to be asked.");
  }
  std::string typed;
  {
    const QuietTerminal quiet(terminal.get());
    if (!quiet.IsQuiet()) {
      throw ToolError(ExitCode::kUsage,
                      "This terminal cannot hide what is typed; give "
                      "--password-file FILE instead.");
    }
    // Asked for sooner, what is typed at once would be shown, and lost.
    WriteAll(terminal.get(), "Password of " + Printable(whose) + ": ");
    typed = ReadTyped(terminal.get());
  }
  WriteAll(terminal.get(), "\n");
  if (typed.empty()) {
    throw ToolError(ExitCode::kUsage, "No password was typed; try again.");
  }
  return PasswordIn(std::move(typed), "the terminal");
}

}  // namespace quorvane::tool
