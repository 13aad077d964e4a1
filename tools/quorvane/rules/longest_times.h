// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_LONGEST_TIMES_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_LONGEST_TIMES_H_

#include "quorvane/config.h"

namespace quorvane::tool {

/// The longest time of each phase, in seconds: every request takes its time
/// limit, and every attempt is needed. Reading the members of an inventory
/// takes additional time, because only the BMC knows their number.
struct LongestTimes {
  double inventory = 0;
  double simple_update = 0;
  double download = 0;
  double upload = 0;  ///< Multipart upload; the binary upload takes as long.
  double task = 0;
  double activation = 0;  ///< Including its task, if a rule polls one.
  double reboot = 0;      ///< Likewise.

  [[nodiscard]] double LocalUpdate() const;  ///< `quorvane update --file`
  [[nodiscard]] double ShareUpdate() const;  ///< `quorvane update --image`
};

LongestTimes LongestTimesOf(const Config& rules);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_LONGEST_TIMES_H_
