// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/quorvane/base/exit_code.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/run/records.h"

namespace quorvane::tool {

/// A call that reads from a BMC: runs it, keeps its log, and explains from the
/// log why it failed.
class BmcCall {
 public:
  /// @param name  "inventory" or "chassis", see worker.h.
  BmcCall(const BmcOptions& options, std::string name);

  /// What the library returned.
  /// @throws ToolError when it threw or was interrupted.
  nlohmann::json Ask();
  /// Says why nothing could be read, after the library said so.
  ExitCode Refused() const;

 private:
  const BmcOptions& options_;
  std::string name_;
  std::string log_path_;
  std::vector<Record> troubles_;  // warnings and errors
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_BMC_CALL_H_
