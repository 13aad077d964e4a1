// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/password.h"

#include <bsd/readpassphrase.h>
#include <fmt/core.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <string_view>
#include <utility>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

// The password in `line`, which comes from `source`.
std::string PasswordIn(std::string line, const std::string& source) {
  if (!line.empty() && line.back() == '\r') {
    line.pop_back();
    PrintMessage("The password from " + source +
                 " ends with a carriage return, which is not used. Write the "
                 "file with line breaks of Unix.");
  }
  if (line.empty()) {
    throw ToolError(ExitCode::kUsage, "Cannot read the password from " +
                                          source +
                                          ": the first line is empty.");
  }
  constexpr std::string_view kUnusable("\0\r\n", 3);
  if (line.find_first_of(kUnusable) != std::string::npos) {
    throw ToolError(ExitCode::kUsage,
                    "Cannot use the password from " + source +
                        ": it contains a NUL byte or a carriage return. Remove "
                        "it.");
  }
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  if (line.rfind(kByteOrderMark, 0) == 0) {
    throw ToolError(ExitCode::kUsage,
                    "Cannot use the password from " + source +
                        ": it begins with a byte order mark (UTF-8). Remove "
                        "it.");
  }
  if (line.back() == ' ' || line.back() == '\t') {
    fmt::print(stderr,
               "quorvane: The password from {} ends with a {}, which is used "
               "as part of it. Remove it if it is a mistake.\n",
               Printable(source), line.back() == ' ' ? "space" : "tab");
  }
  return line;
}

// While it exists, SIGINT does not end the process: readpassphrase(3bsd) first
// restores the terminal, then sends the signal again and returns.
class DeferredInterrupt {
 public:
  DeferredInterrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGINT, &action, &before_);
  }
  ~DeferredInterrupt() { sigaction(SIGINT, &before_, nullptr); }
  DeferredInterrupt(const DeferredInterrupt&) = delete;
  DeferredInterrupt& operator=(const DeferredInterrupt&) = delete;

 private:
  struct sigaction before_ {};
};

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
  constexpr std::size_t kMaxBytes = 4096;  // of a terminal's line, termios(3)
  std::array<char, kMaxBytes> typed{};
  const std::string prompt = "Password for " + Printable(whose) + ": ";
  const DeferredInterrupt deferred;
  if (readpassphrase(prompt.c_str(), typed.data(), typed.size(),
                     RPP_REQUIRE_TTY) == nullptr) {
    if (errno == EINTR) {
      throw ToolError(ExitCode::kInterrupted,
                      "Interrupted. The BMC received no request.");
    }
    throw ToolError(ExitCode::kUsage,
                    "Cannot prompt for the password: there is no terminal. Use "
                    "--password-file FILE or --password-stdin.");
  }
  std::string password = typed.data();
  explicit_bzero(typed.data(), typed.size());
  return PasswordIn(std::move(password), "the terminal");
}

}  // namespace quorvane::tool
