// SPDX-License-Identifier: Apache-2.0
// What the versions of the firmware add to a verdict on what the BMC answered.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_VERSION_VERDICT_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_VERSION_VERDICT_H_

#include "tools/quorvane/run/facts.h"
#include "tools/quorvane/run/verdict.h"

namespace quorvane::tool {

/// The verdict on a run whose requests and tasks gave the verdict `said` and
/// the claim `claim`. `said` itself if no versions were compared.
Verdict JudgeByVersions(const Facts& facts, Claim claim, const Verdict& said);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_VERSION_VERDICT_H_
