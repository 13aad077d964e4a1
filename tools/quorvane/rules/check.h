// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_

#include <string>
#include <string_view>
#include <vector>

#include "tools/quorvane/rules/text.h"

namespace quorvane::tool {

/// Something in a rules file that will not do what its writer may think.
struct Finding {
  Place place = {};
  std::string text = {};
};

/// Lints a rules file, whether or not the library loads it.
/// @return In the order of the file.
std::vector<Finding> LintRules(std::string_view text);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_
