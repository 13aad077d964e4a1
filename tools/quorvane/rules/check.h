// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_

#include <string>
#include <string_view>
#include <vector>

#include "tools/quorvane/rules/positioned_json.h"

namespace quorvane::tool {

/// A fault in a rules file: something that does not do what it seems to do.
struct Finding {
  Position position = {};
  std::string text = {};
};

/// Checks a rules file, whether or not the library loads it.
/// @return The findings in the order of the file.
std::vector<Finding> CheckRules(std::string_view text);

/// Compares the keys, types and values below `root` with `kRulesSchema`.
void CheckSchema(const JsonNode& root, std::vector<Finding>& findings);

/// "; did you mean "Running"?", or nothing if no known word is similar.
std::string Suggestion(const std::vector<std::string>& known,
                       const std::string& word);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_
