// SPDX-License-Identifier: Apache-2.0
// The fixed numbers of an update: what the rules file cannot change. Everything
// here is in the header, so that a program that explains the rules can use the
// same numbers without the objects of the library.
#ifndef QUORVANE_CONFIG_LIMITS_H_
#define QUORVANE_CONFIG_LIMITS_H_

#include <algorithm>
#include <cmath>
#include <limits>

#include "quorvane/config.h"

namespace quorvane {

/// Time limits of whole requests, in milliseconds.
/// @{
/// GET of a collection or a member, of the inventory or the chassis.
inline constexpr long kCollectionTimeoutMs = 15'000;
/// GET of a task, for one poll.
inline constexpr long kPollTimeoutMs = 30'000;
/// POST of an action: SimpleUpdate, activation, reset.
inline constexpr long kActionTimeoutMs = 60'000;
/// Upload or download of an image.
inline constexpr long kImageTimeoutMs = 600'000;
/// @}

/// Longest wait before a retry, in seconds. Exponential waits stay there.
inline constexpr int kMaxRetryDelaySeconds = std::numeric_limits<int>::max();

/// Polls in a row, without another state in between, that find the task in
/// state "Scheduled" or "Starting". After them the firmware counts as staged:
/// such a task does not continue before the system reboots.
inline constexpr int kStagedPolls = 3;

/// PercentComplete from which a task that is no longer found (404) counts as
/// completed: a BMC can lose its tasks when it restarts to apply firmware.
inline constexpr int kAppliedPercent = 50;

/// The wait before a retry, in seconds: `sleep_time`, doubled after each
/// attempt if the strategy is "exponential".
/// @param attempt  Number of the attempt that failed, from 0.
inline int RetryDelaySeconds(const Config& config, int attempt) {
  if (config.backoff_strategy != "exponential") return config.sleep_time;
  constexpr double kMax = kMaxRetryDelaySeconds;
  return static_cast<int>(
      std::clamp(std::ldexp(config.sleep_time, attempt), -kMax, kMax));
}

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_LIMITS_H_
