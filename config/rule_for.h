// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_CONFIG_RULE_FOR_H_
#define QUORVANE_CONFIG_RULE_FOR_H_

#include <optional>
#include <unordered_map>

namespace quorvane {

/// The action of the rule for a status or a TaskState; nothing without a rule.
template <typename Key, typename Action, typename Value>
std::optional<Action> RuleFor(const std::unordered_map<Key, Action>& rules,
                              const Value& value) {
  const auto rule = rules.find(static_cast<Key>(value));
  if (rule == rules.end()) return std::nullopt;
  return rule->second;
}

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_RULE_FOR_H_
