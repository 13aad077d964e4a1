// SPDX-License-Identifier: Apache-2.0
// Rules that apply to the HTTP status of a response.
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "config/actions.h"
#include "tools/quorvane/rules/check.h"

namespace quorvane::tool {
namespace {

using Findings = std::vector<Finding>;

constexpr const char* kUploadRules =
    "firmware_update/multipart_update/upload_rules";
constexpr std::string_view kAcceptUpload = ActionName(UploadAction::track_task);

struct StatusTable {
  const char* path;
  /// The actions after which the request counts as successful.
  std::array<std::string_view, 2> successes;
  const char* harm;     ///< What happens if that is wrong.
  const char* instead;  ///< The action for a failed request.
  /// The consequence if a successful status has no rule; null: none.
  const char* without_rule;
};
constexpr std::array kStatusTables = {
    StatusTable{.path = "firmware_update/inventory_rules",
                .successes = {ActionName(InventoryAction::validate_firmware)},
                .harm = "The library reads the error as the inventory",
                .instead = R"("retry_inventory" or "fail_or_manual_check")",
                .without_rule = nullptr},
    StatusTable{.path = kUploadRules,
                .successes = {kAcceptUpload},
                .harm = "The reboot and other steps follow although the BMC "
                        "has not accepted the image",
                .instead = "\"retry_with_backoff\"",
                .without_rule = "An image that the BMC accepts with such a "
                                "status is sent again"},
    StatusTable{.path = "firmware_update/activation/activation_rules",
                .successes = {ActionName(ActivationAction::check_reboot),
                              ActionName(ActivationAction::poll_task)},
                .harm = "The update continues although the BMC has not "
                        "accepted the request",
                .instead = "\"retry_or_fail\"",
                .without_rule = "A request that the BMC accepts with such a "
                                "status is sent again"},
    StatusTable{.path = "firmware_update/reboot/reboot_rules",
                .successes = {ActionName(RebootAction::success),
                              ActionName(RebootAction::poll_task)},
                .harm = "The result reports a reboot that the BMC has not "
                        "accepted",
                .instead = R"("manual_intervention" or "retry_reboot")",
                .without_rule = "A reboot that the BMC accepts with such a "
                                "status counts as rejected"},
};

// Rules without an effect: the library decides before it reads them.
struct UnusedRule {
  const char* table;
  int status;
  const char* text;
  bool is_partly_used = false;
};
constexpr std::array kUnusedRules = {
    UnusedRule{
        "firmware_update/inventory_rules", 401,
        "has no effect: a refused login always ends the inventory. Remove "
        "it"},
    UnusedRule{
        "firmware_update/inventory_rules", 403,
        "has no effect: a refused login always ends the inventory. Remove "
        "it"},
    UnusedRule{"firmware_update/inventory_rules", 0,
               "has no effect: no rule applies to an inventory request without "
               "a response. Remove it"},
    UnusedRule{kUploadRules, 404,
               "has no effect: the library always tries the next upload URI. "
               "Remove it"},
    UnusedRule{kUploadRules, 405,
               "has no effect: the library always tries the next upload URI. "
               "Remove it"},
    UnusedRule{
        "firmware_update/activation/activation_rules", 404,
        "affects only an activation: after a SimpleUpdate, the library "
        "always tries the next URI. Remove it if you do not activate uploads",
        true},
};

struct StatusRule {
  int status;
  const JsonNode* node;
};

// The rules that the library uses: it reads the digits at the beginning of a
// key, skips a value that is not a string, and uses the first of equal keys.
std::vector<StatusRule> RulesIn(const JsonNode& table) {
  constexpr int kDecimal = 10;
  std::vector<StatusRule> rules;
  std::set<int> seen;
  for (const JsonNode& rule : table.children) {
    if (rule.type != JsonNode::Type::kString) continue;
    const auto status =
        static_cast<int>(std::strtol(rule.key.c_str(), nullptr, kDecimal));
    if (seen.insert(status).second) rules.push_back({status, &rule});
  }
  return rules;
}

void CheckKeys(const JsonNode& table, Findings& findings) {
  const auto is_status = [](const std::string& key) {
    return key == "0" ||
           (key.size() == 3 && key[0] >= '1' && key[0] <= '5' &&
            key.find_first_not_of("0123456789") == std::string::npos);
  };
  for (const JsonNode& rule : table.children) {
    if (is_status(rule.key)) continue;
    findings.push_back(
        {Severity::kWarning, rule.key_position,
         fmt::format("\"{}\" is not an HTTP status, so the rule may apply to "
                     "another status or to none. Write three digits, or 0 "
                     "for a request without a response",
                     rule.key)});
  }
}

// Whether the library never reads the rule.
bool CheckUnused(const StatusTable& table, const StatusRule& rule,
                 Findings& findings) {
  const auto* const unused = std::find_if(
      kUnusedRules.begin(), kUnusedRules.end(), [&](const UnusedRule& one) {
        return std::string_view(one.table) == table.path &&
               one.status == rule.status;
      });
  if (unused == kUnusedRules.end()) return false;
  findings.push_back(
      {Severity::kWarning, rule.node->key_position,
       fmt::format("The rule for {} {}", rule.status, unused->text)});
  return !unused->is_partly_used;
}

void CheckSuccess(const StatusTable& table, const StatusRule& rule,
                  Findings& findings) {
  const bool is_success =
      !rule.node->text.empty() &&
      std::find(table.successes.begin(), table.successes.end(),
                rule.node->text) != table.successes.end();
  // RFC 9110, section 15. Keys such as "2" match no response.
  const bool is_failure = rule.status == 0 ||
                          (rule.status >= 100 && rule.status < 200) ||
                          rule.status >= 400;
  if (!is_success || !is_failure) return;
  const std::string request =
      rule.status != 0 ? fmt::format(
                             "a request that the BMC answers with HTTP "
                             "{}",
                             rule.status)
      : rule.node->key == "0"
          ? "a request without a response"
          : "a request without a response (the library reads this key as 0)";
  findings.push_back(
      {Severity::kError, rule.node->position,
       fmt::format(R"("{}": "{}" counts {} as successful. {}. Use {})",
                   rule.node->key, rule.node->text, request, table.harm,
                   table.instead)});
}

// An unknown action is not one: the library rejects it.
bool IsUploadRetry(const std::string& action) {
  const auto names = ActionNames<UploadAction>();
  return action != kAcceptUpload &&
         std::find(names.begin(), names.end(), action) != names.end();
}

// A BMC that accepts an image with 200 must not get it again.
void CheckUploadAccepted(const JsonNode& table,
                         const std::vector<StatusRule>& rules,
                         Findings& findings) {
  constexpr const char* kConsequence =
      "The library sends an image again that the BMC has accepted with this "
      "status, and in the end counts the upload as failed";
  const auto rule =
      std::find_if(rules.begin(), rules.end(),
                   [](const StatusRule& one) { return one.status == 200; });
  if (rule == rules.end()) {
    findings.push_back({Severity::kError, table.position,
                        fmt::format(R"(No rule for 200. {}. Add "200": "{}")",
                                    kConsequence, kAcceptUpload)});
  } else if (IsUploadRetry(rule->node->text)) {
    findings.push_back(
        {Severity::kError, rule->node->position,
         fmt::format("\"200\": \"{}\" does not accept the upload. {}. Use "
                     "\"{}\"",
                     rule->node->text, kConsequence, kAcceptUpload)});
  }
}

void CheckTable(const StatusTable& table, const JsonNode& node,
                Findings& findings) {
  // The statuses of an accepted request (DSP0266, "Status codes").
  std::vector<std::string> missing = {"200", "202", "204"};
  CheckKeys(node, findings);
  const std::vector<StatusRule> rules = RulesIn(node);
  for (const StatusRule& rule : rules) {
    if (!CheckUnused(table, rule, findings)) {
      CheckSuccess(table, rule, findings);
    }
  }
  if (std::string_view(table.path) == kUploadRules) {
    CheckUploadAccepted(node, rules, findings);
    missing.erase(missing.begin());
  }
  if (table.without_rule != nullptr) {
    ReportMissingRules(node, missing, table.without_rule, findings);
  }
}

}  // namespace

void CheckStatusRules(const JsonNode& root, Findings& findings) {
  for (const StatusTable& table : kStatusTables) {
    const JsonNode* node = root.FindPath(table.path);
    if (node != nullptr && node->type == JsonNode::Type::kObject) {
      CheckTable(table, *node, findings);
    }
  }
}

}  // namespace quorvane::tool
