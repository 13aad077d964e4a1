// SPDX-License-Identifier: Apache-2.0
#include "update/requests.h"

#include <stdexcept>

#include "config/limits.h"

namespace quorvane {

Response PostAction(const UpdateRun& run, const std::string& url,
                    const std::string& body) {
  const Config& config = run.config;
  return run.client.post_json(url, body, {}, kActionTimeoutMs, config.username,
                              config.password, config.auth_type);
}

Response ResponseOrStatusZero(const std::function<Response()>& send) {
  try {
    return send();
  } catch (const std::runtime_error&) {
    return {};
  }
}

}  // namespace quorvane
