// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/rules/check.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>

#include "config/actions.h"
#include "config/limits.h"
#include "tools/quorvane/base/closest.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

using Findings = std::vector<Finding>;

constexpr double kDay = 24 * 60 * 60;

// Redfish TaskState (DMTF DSP2046, Task), and Scheduled, which some BMCs report
// and the library knows as a state of staged firmware.
const std::vector<std::string>& TaskStates() {
  static const std::vector<std::string> states = {
      "New",     "Starting",   "Running",   "Suspended", "Interrupted",
      "Pending", "Stopping",   "Completed", "Killed",    "Exception",
      "Service", "Cancelling", "Cancelled", "Scheduled"};
  return states;
}

double NumberOf(const JsonNode& section, const char* key, double fallback) {
  const JsonNode* value = section.Find(key);
  const bool is_number =
      value != nullptr && (value->type == JsonNode::Type::kInteger ||
                           value->type == JsonNode::Type::kNumber);
  return is_number ? value->number : fallback;
}

// Reports which of `keys` have no rule in `rules`.
template <typename Keys>
void ReportMissingRules(const JsonNode& rules, const Keys& keys,
                        const char* consequence, Findings& findings) {
  std::string missing;
  for (const char* key : keys) {
    if (rules.Find(key) != nullptr) continue;
    missing += (missing.empty() ? "" : ", ") + std::string(key);
  }
  if (missing.empty()) return;
  findings.push_back(
      {rules.position, fmt::format("No rule for {}. {}. Add the missing rules",
                                   missing, consequence)});
}

// Rules without an effect: the library decides before it reads them.
struct UnusedRule {
  const char* table;
  const char* status;
  const char* text;
};
constexpr std::array kUnusedRules = {
    UnusedRule{
        "firmware_update/inventory_rules", "401",
        "has no effect: a refused login always ends the inventory. Remove "
        "it"},
    UnusedRule{
        "firmware_update/inventory_rules", "403",
        "has no effect: a refused login always ends the inventory. Remove "
        "it"},
    UnusedRule{"firmware_update/inventory_rules", "0",
               "has no effect: no rule applies to an inventory request without "
               "a response. Remove it"},
    UnusedRule{"firmware_update/multipart_update/upload_rules", "404",
               "has no effect: the library always tries the next upload URI. "
               "Remove it"},
    UnusedRule{"firmware_update/multipart_update/upload_rules", "405",
               "has no effect: the library always tries the next upload URI. "
               "Remove it"},
    UnusedRule{
        "firmware_update/activation/activation_rules", "404",
        "affects only an activation: after a SimpleUpdate, the library "
        "always tries the next URI. Remove it if you do not activate uploads"},
};

void CheckUnusedRules(const JsonNode& root, Findings& findings) {
  for (const auto& [table, status, text] : kUnusedRules) {
    const JsonNode* rules = root.FindPath(table);
    const JsonNode* rule = rules == nullptr ? nullptr : rules->Find(status);
    if (rule == nullptr) continue;
    findings.push_back(
        {rule->key_position, fmt::format("The rule for {} {}", status, text)});
  }
}

// A table of rules by HTTP status, and the consequence if a success has no
// rule; nullptr: none.
struct StatusTable {
  const char* path;
  const char* consequence;
};
constexpr std::array kStatusTables = {
    StatusTable{"firmware_update/inventory_rules", nullptr},
    StatusTable{
        "firmware_update/multipart_update/upload_rules",
        "An image that the BMC accepts with such a status is sent again"},
    StatusTable{"firmware_update/activation/activation_rules",
                "A request that the BMC accepts with such a status is sent "
                "again"},
    StatusTable{"firmware_update/reboot/reboot_rules",
                "A reboot that the BMC accepts with such a status counts as "
                "rejected"},
};

bool IsStatus(const std::string& key) {
  return key == "0" ||
         (key.size() == 3 && key[0] >= '1' && key[0] <= '5' &&
          key.find_first_not_of("0123456789") == std::string::npos);
}

void CheckStatusTables(const JsonNode& root, Findings& findings) {
  // The statuses of an accepted request (DSP0266, "Status codes").
  constexpr std::array kSuccesses = {"200", "202", "204"};
  for (const auto& [path, consequence] : kStatusTables) {
    const JsonNode* rules = root.FindPath(path);
    if (rules == nullptr) continue;
    for (const JsonNode& rule : rules->children) {
      if (IsStatus(rule.key)) continue;
      findings.push_back(
          {rule.key_position,
           fmt::format("\"{}\" is not an HTTP status, so the rule may apply to "
                       "another status or to none. Write three digits, or 0 "
                       "for a request without a response",
                       rule.key)});
    }
    if (consequence != nullptr) {
      ReportMissingRules(*rules, kSuccesses, consequence, findings);
    }
  }
}

void ReportLongTime(const JsonNode* value, double seconds, Findings& findings) {
  if (value == nullptr || seconds <= kDay) return;
  findings.push_back(
      {value->position,
       fmt::format("{} is longer than a day ({}), so an update can be idle for "
                   "that time. The unit is seconds; use a smaller number",
                   value->key, Duration(seconds))});
}

void CheckRetries(const JsonNode& root, Findings& findings) {
  const JsonNode* section = root.Find("retry_config");
  if (section == nullptr) return;
  const Config defaults;
  const double wait = NumberOf(*section, "sleep_time", defaults.sleep_time);
  const double retries =
      NumberOf(*section, "max_retries", defaults.max_retries);
  ReportLongTime(section->Find("sleep_time"), wait, findings);
  const JsonNode* backoff = section->Find("backoff_strategy");
  if (wait > kDay || (backoff != nullptr && backoff->text == "fixed")) return;
  const double last_wait = std::min<double>(
      std::ldexp(wait, static_cast<int>(std::clamp(retries - 1, 0.0, 1000.0))),
      kMaxRetryDelaySeconds);
  if (last_wait <= kDay) return;
  const JsonNode* value = section->Find("max_retries");
  findings.push_back(
      {value == nullptr ? section->position : value->position,
       fmt::format("The last of {:.0f} exponential waits is longer than a day "
                   "({}), because each one is twice the previous one. Use "
                   "fewer retries or \"fixed\"",
                   retries, Duration(last_wait))});
}

void CheckPolling(const JsonNode& root, Findings& findings) {
  const JsonNode* section = root.FindPath("firmware_update/task_monitoring");
  if (section == nullptr) return;
  const Config defaults;
  const double interval =
      NumberOf(*section, "polling_interval", defaults.polling_interval);
  const double limit = NumberOf(*section, "max_polling_time_seconds",
                                defaults.max_polling_time_seconds);
  if (limit < interval) {
    findings.push_back(
        {section->position,
         fmt::format("max_polling_time_seconds ({:.0f}) is less than "
                     "polling_interval ({:.0f}), so no task is polled. "
                     "Increase max_polling_time_seconds",
                     limit, interval)});
  }
  ReportLongTime(section->Find("polling_interval"), interval, findings);
  ReportLongTime(section->Find("max_polling_time_seconds"), limit, findings);
}

void CheckTaskStates(const JsonNode& root, Findings& findings) {
  constexpr std::array kFinalStates = {"Completed", "Exception", "Killed",
                                       "Cancelled"};
  const JsonNode* states =
      root.FindPath("firmware_update/task_monitoring/task_states");
  if (states == nullptr) return;
  for (const JsonNode& rule : states->children) {
    if (std::find(TaskStates().begin(), TaskStates().end(), rule.key) !=
        TaskStates().end()) {
      continue;
    }
    findings.push_back(
        {rule.key_position,
         fmt::format("\"{}\" is not a Redfish TaskState (DMTF DSP2046), so the "
                     "rule probably never applies{}",
                     rule.key, Suggestion(TaskStates(), rule.key))});
  }
  for (const char* state : kFinalStates) {
    const JsonNode* rule = states->Find(state);
    if (rule == nullptr ||
        rule->text != ActionName(TaskAction::continue_polling)) {
      continue;
    }
    findings.push_back(
        {rule->position, fmt::format("A task does not leave the state {}, but "
                                     "polling continues to its time limit. Use "
                                     "an action that ends polling",
                                     state)});
  }
  ReportMissingRules(
      *states, kFinalStates,
      "A task does not leave such a state, but polling continues "
      "to its time limit",
      findings);
}

// All checks, in any order: the findings are sorted.
constexpr std::array kChecks = {CheckSchema,       CheckUnusedRules,
                                CheckStatusTables, CheckRetries,
                                CheckPolling,      CheckTaskStates};

}  // namespace

std::string Suggestion(const std::vector<std::string>& known,
                       const std::string& word) {
  const std::string closest = ClosestOf(known, word);
  return closest.empty() ? std::string()
                         : fmt::format("; did you mean \"{}\"?", closest);
}

std::vector<Finding> CheckRules(std::string_view text) {
  const ParsedJson rules = ParseJson(text);
  if (!rules.is_valid) {
    return {{rules.error,
             "Not valid JSON (RFC 8259). Fix this first; the rest was not "
             "checked"}};
  }
  Findings findings;
  for (const auto& check : kChecks) check(rules.root, findings);
  std::stable_sort(findings.begin(), findings.end(),
                   [](const Finding& a, const Finding& b) {
                     return std::tie(a.position.line, a.position.column) <
                            std::tie(b.position.line, b.position.column);
                   });
  return findings;
}

}  // namespace quorvane::tool
