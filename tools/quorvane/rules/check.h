// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_

#include <string>
#include <string_view>
#include <vector>

#include "tools/quorvane/rules/positioned_json.h"

namespace quorvane::tool {

enum class Severity {
  kWarning,  ///< Something does not do what it seems to do.
  kError     ///< The library rejects the file, or an update can do harm.
};

/// A fault in a rules file.
struct Finding {
  Severity severity = Severity::kWarning;
  Position position = {};
  /// What happens, and what to write instead.
  std::string text = {};
};

/// Checks a rules file, whether or not the library loads it. If the library
/// rejects the file, there is an error.
/// @return The findings in the order of the file.
std::vector<Finding> CheckRules(std::string_view text);

bool HasErrors(const std::vector<Finding>& findings);

/// "FILE:LINE:COLUMN: error: TEXT", safe to show on a terminal.
/// @param is_colored  Whether the severity has a color.
std::string LineOf(const Finding& finding, std::string_view file,
                   bool is_colored);

/// Compares the keys, types and values below `root` with `kRulesSchema`.
void CheckSchema(const JsonNode& root, std::vector<Finding>& findings);

/// Checks the rules that apply to an HTTP status.
void CheckStatusRules(const JsonNode& root, std::vector<Finding>& findings);

/// Adds a warning for the keys that have no rule, if there are any.
void ReportMissingRules(const JsonNode& table,
                        const std::vector<std::string>& keys,
                        const char* consequence,
                        std::vector<Finding>& findings);

/// "; did you mean "Running"?", or nothing if no known word is similar.
std::string Suggestion(const std::vector<std::string>& known,
                       const std::string& word);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_CHECK_H_
