// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_SCHEMA_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_SCHEMA_H_

#include <string_view>

namespace quorvane::tool {

/// The JSON Schema (2020-12) of rules files: `brindle.schema.json`. It is the
/// only list of keys, types and defaults in the tool; `CheckRules` reads it.
extern const std::string_view kRulesSchema;

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_SCHEMA_H_
