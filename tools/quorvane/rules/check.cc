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

// The schema can require one of two keys, but not that its value is not empty.
void CheckTarget(const JsonNode& root, Findings& findings) {
  const JsonNode* target = root.Find("target");
  if (target == nullptr || target->type != JsonNode::Type::kObject) return;
  for (const char* key : {"ip", "ipv6"}) {
    const JsonNode* address = target->Find(key);
    if (address != nullptr && address->type == JsonNode::Type::kString &&
        !address->text.empty()) {
      return;
    }
  }
  findings.push_back(
      {Severity::kError, target->position,
       "\"target\" has no address, so the file does not load. Add \"ip\" with "
       "any address, such as 192.0.2.1"});
}

void ReportLongTime(const JsonNode* value, double seconds, Findings& findings) {
  if (value == nullptr || seconds <= kDay) return;
  findings.push_back(
      {Severity::kWarning, value->position,
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
      {Severity::kWarning,
       value == nullptr ? section->position : value->position,
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
        {Severity::kError, section->position,
         fmt::format("max_polling_time_seconds ({:.0f}) is less than "
                     "polling_interval ({:.0f}), so no task is polled and the "
                     "system reboots at once. "
                     "Increase max_polling_time_seconds",
                     limit, interval)});
  }
  ReportLongTime(section->Find("polling_interval"), interval, findings);
  ReportLongTime(section->Find("max_polling_time_seconds"), limit, findings);
}

// The states in which a task does not run (DMTF DSP2046, Task).
struct EndState {
  const char* name;
  bool is_final;  ///< An interrupted task can restart.
  /// The action for a task without success; empty: it succeeded.
  std::string_view failure_action;
};
constexpr std::array kEndStates = {
    EndState{"Completed", true, {}},
    EndState{"Exception", true, ActionName(TaskAction::retry_upload)},
    EndState{"Killed", true, ActionName(TaskAction::restart_upload)},
    EndState{"Cancelled", true, ActionName(TaskAction::restart_upload)},
    EndState{"Interrupted", false, ActionName(TaskAction::retry_last_chunk)},
};

void CheckStateNames(const JsonNode& states, Findings& findings) {
  for (const JsonNode& rule : states.children) {
    if (std::find(TaskStates().begin(), TaskStates().end(), rule.key) !=
        TaskStates().end()) {
      continue;
    }
    findings.push_back(
        {Severity::kWarning, rule.key_position,
         fmt::format("\"{}\" is not a Redfish TaskState (DMTF DSP2046), so the "
                     "rule probably never applies{}",
                     rule.key, Suggestion(TaskStates(), rule.key))});
  }
}

void CheckEndState(const JsonNode& rule, const EndState& state,
                   Findings& findings) {
  if (state.is_final && rule.text == ActionName(TaskAction::continue_polling)) {
    findings.push_back(
        {Severity::kWarning, rule.position,
         fmt::format("A task does not leave the state {}, but polling "
                     "continues to its time limit. Use an action that ends "
                     "polling",
                     state.name)});
  }
  if (!state.failure_action.empty() &&
      rule.text == ActionName(TaskAction::proceed_to_activation)) {
    findings.push_back(
        {Severity::kError, rule.position,
         fmt::format("A task in the state {} has not installed the firmware, "
                     "but counts as successful, and the update continues. Use "
                     "\"{}\"",
                     state.name, state.failure_action)});
  }
}

void CheckTaskStates(const JsonNode& root, Findings& findings) {
  const JsonNode* states =
      root.FindPath("firmware_update/task_monitoring/task_states");
  if (states == nullptr) return;
  CheckStateNames(*states, findings);
  std::vector<std::string> final_states;
  for (const EndState& state : kEndStates) {
    if (state.is_final) final_states.emplace_back(state.name);
    const JsonNode* rule = states->Find(state.name);
    if (rule != nullptr) CheckEndState(*rule, state, findings);
  }
  ReportMissingRules(
      *states, final_states,
      "A task does not leave such a state, but polling continues "
      "to its time limit",
      findings);
}

// All checks, in any order: the findings are sorted.
constexpr std::array kChecks = {CheckSchema,  CheckStatusRules,
                                CheckTarget,  CheckRetries,
                                CheckPolling, CheckTaskStates};

}  // namespace

bool HasErrors(const std::vector<Finding>& findings) {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding& finding) {
                       return finding.severity == Severity::kError;
                     });
}

std::string LineOf(const Finding& finding, std::string_view file,
                   bool is_colored) {
  const bool is_error = finding.severity == Severity::kError;
  const char* color = is_error ? "\x1b[31m" : "\x1b[33m";
  return fmt::format("{}:{}:{}: {}{}{}: {}", Printable(file),
                     finding.position.line, finding.position.column,
                     is_colored ? color : "", is_error ? "error" : "warning",
                     is_colored ? "\x1b[0m" : "", Printable(finding.text));
}

void ReportMissingRules(const JsonNode& table,
                        const std::vector<std::string>& keys,
                        const char* consequence, Findings& findings) {
  std::string missing;
  for (const std::string& key : keys) {
    if (table.Find(key) != nullptr) continue;
    missing += (missing.empty() ? "" : ", ") + key;
  }
  if (missing.empty()) return;
  findings.push_back({Severity::kWarning, table.position,
                      fmt::format("No rule for {}. {}. Add the missing rules",
                                  missing, consequence)});
}

std::string Suggestion(const std::vector<std::string>& known,
                       const std::string& word) {
  const std::string closest = ClosestOf(known, word);
  return closest.empty() ? std::string()
                         : fmt::format("; did you mean \"{}\"?", closest);
}

std::vector<Finding> CheckRules(std::string_view text) {
  const ParsedJson rules = ParseJson(text);
  if (!rules.is_valid) {
    return {{Severity::kError, rules.error,
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
