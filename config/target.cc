// SPDX-License-Identifier: Apache-2.0
#include "config/target.h"

#include <stdexcept>

namespace quorvane {

void OverrideTarget(Config& config, const std::string& ip,
                    const std::string& username, const std::string& password) {
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

std::string ResolveUrl(const Config& config, const std::string& link) {
  const bool is_absolute =
      link.rfind("http://", 0) == 0 || link.rfind("https://", 0) == 0;
  return is_absolute ? link : BuildBaseUrl(config) + link;
}

}  // namespace quorvane
