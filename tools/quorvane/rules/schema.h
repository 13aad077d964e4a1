// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RULES_SCHEMA_H_
#define QUORVANE_TOOLS_QUORVANE_RULES_SCHEMA_H_

#include <nlohmann/json.hpp>

namespace quorvane::tool {

/// The JSON Schema (2020-12) of the rules file: which keys there are, of what
/// type, and what they mean. The lint reads it too, so a key is named here
/// alone.
const nlohmann::ordered_json& RulesSchema();

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RULES_SCHEMA_H_
