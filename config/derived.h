// SPDX-License-Identifier: Apache-2.0
// What follows from the rules alone, for the inventory and the update alike.
#ifndef QUORVANE_CONFIG_DERIVED_H_
#define QUORVANE_CONFIG_DERIVED_H_

#include <optional>
#include <string>
#include <unordered_map>

#include "quorvane/config.h"

namespace quorvane {

/// What the rules say of one outcome (a status, a TaskState); nothing when no
/// rule names it.
template <typename Key, typename Action, typename Outcome>
std::optional<Action> RuleFor(const std::unordered_map<Key, Action>& rules,
                              const Outcome& outcome) {
  const auto rule = rules.find(static_cast<Key>(outcome));
  if (rule == rules.end()) return std::nullopt;
  return rule->second;
}

/// Points the rules at one server: the caller's address and account go before
/// those of the file, and are sent as basic authentication (RFC 7617) whatever
/// type the file names.
void AimAt(const std::string& ip, const std::string& username,
           const std::string& password, Config& config);

/// "https://" and the BMC's address, without a trailing slash. `ip` goes first
/// and stays without brackets, even if it is an IPv6 literal.
/// @throws std::runtime_error "Config has no target ip or ipv6"
std::string BuildBaseUrl(const Config& config);

/// A link that a BMC gave as a URL: an absolute one as it is, any other behind
/// the base URL.
/// @throws as `BuildBaseUrl`.
std::string UrlOf(const std::string& link, const Config& config);

/// Waits before the next try and says so under `component`: "Retrying in 10s
/// (attempt 2/3)".
/// @param attempt  Number of the try that just failed, from 0. "exponential"
///                 doubles the wait with each, up to 2^31 - 1 seconds.
void SleepBeforeRetry(const char* component, const Config& config, int attempt);

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_DERIVED_H_
