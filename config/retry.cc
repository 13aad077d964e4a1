// SPDX-License-Identifier: Apache-2.0
#include "config/retry.h"

#include <string>

#include "config/limits.h"
#include "quorvane/logging.h"
#include "support/wait.h"

namespace quorvane {

void SleepBeforeRetry(const char* component, const Config& config,
                      int attempt) {
  const int delay = RetryDelaySeconds(config, attempt);
  LogInfo(component, "Retrying in " + std::to_string(delay) + "s (attempt " +
                         std::to_string(1LL + attempt) + "/" +
                         std::to_string(config.max_retries) + ")");
  SleepSeconds(delay);
}

}  // namespace quorvane
