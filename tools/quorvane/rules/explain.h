// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_EXPLAIN_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_EXPLAIN_H_

#include <string>

#include "quorvane/config.h"

namespace quorvane::tool {

/// Describes what an update with these rules does, phase by phase.
std::string ExplainRules(const Config& rules);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_EXPLAIN_H_
