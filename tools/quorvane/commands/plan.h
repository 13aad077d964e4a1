// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_PLAN_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_PLAN_H_

#include "tools/quorvane/base/exit_code.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/image_options.h"
#include "tools/quorvane/commands/verification.h"

namespace quorvane::tool {

struct PlanOptions {
  BmcOptions bmc = {};
  ImageOptions image = {};
  bool json = false;
  bool reboots = true;  ///< False: as with `update --restart never`.
  VerifyOptions verify = {};
};

/// Prints what an update with these options would do. Changes nothing.
/// @return `kFailed` if the plan has a blocker.
/// @throws ToolError if the options are wrong or the BMC gives no access.
ExitCode RunPlan(PlanOptions options);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_PLAN_H_
