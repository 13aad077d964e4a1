// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_ERROR_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_ERROR_H_

#include <stdexcept>
#include <string>

#include "tools/quorvane/base/exit_code.h"

namespace quorvane::tool {

/// An error that ends the command. The text says what failed, why, and what to
/// do.
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitCode code, const std::string& text)
      : std::runtime_error(text), code_(code) {}
  [[nodiscard]] ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_ERROR_H_
