// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_EXPLAIN_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_EXPLAIN_H_

#include <string>

#include "quorvane/config.h"

namespace quorvane::tool {

/// The longest that each phase can take, in seconds: every request answered at
/// the last moment and every try used. The members of an inventory come on top,
/// since only the BMC knows how many there are.
struct LongestTimes {
  double inventory = 0;
  double simple_update = 0;
  double download = 0;
  double upload = 0;  ///< As a form; the bare upload may take as long again.
  double task = 0;
  double activation = 0;  ///< Its task included, if a rule follows one.
  double restart = 0;     ///< Likewise.

  [[nodiscard]] double LocalRoad() const;  ///< `quorvane update --file`
  [[nodiscard]] double ShareRoad() const;  ///< `quorvane update --image`
};

LongestTimes LongestTimesOf(const Config& rules);

/// What an update by these rules does, phase by phase, as a person says it.
std::string ExplainRules(const Config& rules);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_EXPLAIN_H_
