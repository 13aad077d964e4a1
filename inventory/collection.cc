// SPDX-License-Identifier: Apache-2.0
#include "inventory/collection.h"

#include <utility>

#include "config/limits.h"
#include "config/target.h"
#include "quorvane/logging.h"
#include "support/json.h"

namespace quorvane {

Config LoadConfigFor(const InventoryRequest& request) {
  Config config = LoadConfigAuto();
  OverrideTarget(config, request.ip, request.username, request.password);
  return config;
}

Response GetResource(const HttpClient& client, const std::string& url,
                     const Config& config) {
  return client.get(url, {}, kCollectionTimeoutMs, config.username,
                    config.password, config.auth_type);
}

std::vector<std::string> ParseMemberPaths(const std::string& body) {
  std::vector<std::string> paths;
  const JsonPtr collection = ParseJson(body);
  if (!collection) {
    LogWarning("inventory", "Failed to parse collection JSON");
    return paths;
  }
  for (const cJSON* member :
       Elements(ArrayMember(collection.get(), "Members"))) {
    if (auto path = StringMember(member, "@odata.id")) {
      paths.push_back(std::move(*path));
    }
  }
  return paths;
}

}  // namespace quorvane
