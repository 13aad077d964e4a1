// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_CONFIG_RETRY_H_
#define QUORVANE_CONFIG_RETRY_H_

#include "quorvane/config.h"

namespace quorvane {

/// Waits before the next attempt (`RetryDelaySeconds`), and logs it under
/// `component`: "Retrying in 10s (attempt 2/3)".
/// @param attempt  Number of the attempt that failed, from 0.
void SleepBeforeRetry(const char* component, const Config& config, int attempt);

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_RETRY_H_
