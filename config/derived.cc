// SPDX-License-Identifier: Apache-2.0
#include "config/derived.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "quorvane/logging.h"
#include "support/wait.h"

namespace quorvane {
namespace {

int RetryDelay(const Config& config, int attempt) {
  if (config.backoff_strategy != "exponential") return config.sleep_time;
  constexpr double kMost = std::numeric_limits<int>::max();
  return static_cast<int>(
      std::clamp(std::ldexp(config.sleep_time, attempt), -kMost, kMost));
}

}  // namespace

void AimAt(const std::string& ip, const std::string& username,
           const std::string& password, Config& config) {
  config.ip = ip;
  config.auth_type = "basic";
  config.username = username;
  config.password = password;
}

std::string BuildBaseUrl(const Config& config) {
  if (!config.ip.empty()) return "https://" + config.ip;
  if (!config.ipv6.empty()) return "https://[" + config.ipv6 + "]";
  throw std::runtime_error("Config has no target ip or ipv6");
}

std::string UrlOf(const std::string& link, const Config& config) {
  const bool is_absolute =
      link.rfind("http://", 0) == 0 || link.rfind("https://", 0) == 0;
  return is_absolute ? link : BuildBaseUrl(config) + link;
}

void SleepBeforeRetry(const char* component, const Config& config,
                      int attempt) {
  const int delay = RetryDelay(config, attempt);
  LogInfo(component, "Retrying in " + std::to_string(delay) + "s (attempt " +
                         std::to_string(1LL + attempt) + "/" +
                         std::to_string(config.max_retries) + ")");
  SleepSeconds(delay);
}

}  // namespace quorvane
