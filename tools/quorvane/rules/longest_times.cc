// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/rules/longest_times.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/limits.h"

namespace quorvane::tool {
namespace {

constexpr double kMsPerSecond = 1000;

double Attempts(const Config& rules) { return 1.0 + rules.max_retries; }

double RetryWaitsSeconds(const Config& rules) {
  // From the 32nd on, all exponential waits have the maximum length.
  constexpr int kDoublings = 32;
  const int different = std::min(rules.max_retries, kDoublings);
  double waits = 0;
  for (int retry = 0; retry < different; ++retry) {
    waits += RetryDelaySeconds(rules, retry);
  }
  return waits + (static_cast<double>(rules.max_retries) - different) *
                     RetryDelaySeconds(rules, kDoublings);
}

// All attempts at all URIs.
double WalkSeconds(const Config& rules, const std::vector<std::string>& uris,
                   long limit_ms) {
  return static_cast<double>(uris.size()) *
         (Attempts(rules) * static_cast<double>(limit_ms) / kMsPerSecond +
          RetryWaitsSeconds(rules));
}

template <typename Key, typename Action>
bool HasRuleFor(const std::unordered_map<Key, Action>& rules, Action action) {
  return std::any_of(rules.begin(), rules.end(), [action](const auto& rule) {
    return rule.second == action;
  });
}

double TaskSeconds(const Config& rules) {
  const int polls = rules.max_polling_time_seconds / rules.polling_interval;
  return polls * (rules.polling_interval + kPollTimeoutMs / kMsPerSecond);
}

double RebootSeconds(const Config& rules) {
  if (!rules.reboot_required) return 0;
  // Without a retry rule, each URI gets one attempt.
  const double walk =
      HasRuleFor(rules.reboot_rules, RebootAction::retry_reboot)
          ? WalkSeconds(rules, rules.reboot_uri, kActionTimeoutMs)
          : static_cast<double>(rules.reboot_uri.size()) * kActionTimeoutMs /
                kMsPerSecond;
  return walk + (HasRuleFor(rules.reboot_rules, RebootAction::poll_task)
                     ? TaskSeconds(rules)
                     : 0);
}

}  // namespace

double LongestTimes::LocalUpdate() const {
  return inventory + 2 * upload + task + activation + reboot;
}

double LongestTimes::ShareUpdate() const {
  return simple_update + download + LocalUpdate();
}

LongestTimes LongestTimesOf(const Config& rules) {
  LongestTimes longest;
  // A round requests each URI, and the last one once more.
  longest.inventory =
      Attempts(rules) *
          (1.0 + static_cast<double>(rules.inventory_uri.size())) *
          kCollectionTimeoutMs / kMsPerSecond +
      RetryWaitsSeconds(rules);
  longest.simple_update =
      WalkSeconds(rules, rules.activation_uri, kActionTimeoutMs);
  longest.download = kImageTimeoutMs / kMsPerSecond;
  longest.upload = WalkSeconds(rules, rules.upload_uri, kImageTimeoutMs);
  longest.task = TaskSeconds(rules);
  longest.activation =
      longest.simple_update +
      (HasRuleFor(rules.activation_rules, ActivationAction::poll_task)
           ? longest.task
           : 0);
  longest.reboot = RebootSeconds(rules);
  return longest;
}

}  // namespace quorvane::tool
