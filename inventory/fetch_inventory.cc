// SPDX-License-Identifier: Apache-2.0
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "config/retry.h"
#include "config/rule_for.h"
#include "config/target.h"
#include "inventory/collection.h"
#include "logging/redact.h"
#include "quorvane/inventory.h"
#include "quorvane/logging.h"
#include "support/json.h"

namespace quorvane {
namespace {

constexpr const char* kInventory = "inventory";

std::string JoinedForLog(const std::vector<std::string>& uris) {
  std::string joined;
  for (const std::string& uri : uris) {
    if (!joined.empty()) joined += ", ";
    joined += RedactUri(uri);
  }
  return joined;
}

// The response of the first URI that returns 200. If none does, the response to
// another request to the last URI, whatever it returns or throws.
Response GetInventoryCollection(const HttpClient& client, const Config& config,
                                std::string& used_uri) {
  used_uri.clear();
  const std::vector<std::string>& uris = config.inventory_uri;
  if (uris.empty()) return {};
  const std::string base = BuildBaseUrl(config);
  for (std::size_t i = 0; i < uris.size(); ++i) {
    used_uri = uris[i];
    const std::string url = base + used_uri;
    LogInfo(kInventory, "GET collection: " + UriForLog(url) + " (URI " +
                            std::to_string(i + 1) + "/" +
                            std::to_string(uris.size()) + ")");
    try {
      Response response = GetResource(client, url, config);
      if (response.status_code == 200) return response;
      LogWarning(kInventory, "URI failed: " + RedactUri(used_uri) + " (HTTP " +
                                 std::to_string(response.status_code) +
                                 "), trying next URI");
    } catch (const std::runtime_error& failure) {
      LogWarning(kInventory, "URI failed: " + RedactUri(used_uri) +
                                 " (exception: " + failure.what() +
                                 "), trying next URI");
    }
  }
  return GetResource(client, base + used_uri, config);
}

// What to do after the response of a collection.
enum class Decision { kRead, kRetry, kGiveUp };

Decision Retry(const std::string& status) {
  LogWarning(kInventory, "Collection returned HTTP " + status + ", retrying");
  return Decision::kRetry;
}

// No rule can change what a refused login means: another attempt would bring
// the account closer to being locked.
Decision Decide(long status_code, const Config& config) {
  if (status_code == 401) {
    LogError(kInventory, "Authentication failed (HTTP 401 Unauthorized)");
    return Decision::kGiveUp;
  }
  if (status_code == 403) {
    LogError(kInventory, "Access denied (HTTP 403 Forbidden)");
    return Decision::kGiveUp;
  }
  const std::string status = std::to_string(status_code);
  const auto rule = RuleFor(config.inventory_rules, status_code);
  if (!rule) return status_code == 200 ? Decision::kRead : Retry(status);
  switch (*rule) {
    case InventoryAction::validate_firmware:
      return Decision::kRead;
    case InventoryAction::retry_inventory:
      return Retry(status);
    case InventoryAction::fail_or_manual_check:
      LogError(kInventory, "Collection returned HTTP " + status +
                               " \u2014 fail / manual check required");
      return Decision::kGiveUp;
  }
  return Decision::kRetry;
}

InventoryItem ItemFrom(const std::string& path, const cJSON* member) {
  const cJSON* related = ArrayMember(member, "RelatedItem");
  const cJSON* first = related != nullptr ? related->child : nullptr;
  return {.uri = path,
          .Name = StringMember(member, "Name").value_or(""),
          .SoftwareId = StringMember(member, "SoftwareId").value_or(""),
          .Version = StringMember(member, "Version").value_or(""),
          .target_id = StringMember(first, "@odata.id").value_or("")};
}

std::vector<InventoryItem> FetchMembers(const HttpClient& client,
                                        const std::vector<std::string>& paths,
                                        const Config& config) {
  std::vector<InventoryItem> items;
  for (const std::string& path : paths) {
    const Response response =
        GetResource(client, ResolveUrl(config, path), config);
    if (response.status_code != 200 || response.body.empty()) {
      LogWarning(kInventory, "GET member failed: " + RedactUri(path) +
                                 " (HTTP " +
                                 std::to_string(response.status_code) + ")");
      continue;
    }
    const JsonPtr member = ParseJson(response.body);
    if (!member) {
      LogWarning(kInventory,
                 "Failed to parse member JSON for " + RedactUri(path));
      continue;
    }
    items.push_back(ItemFrom(path, member.get()));
  }
  return items;
}

void LogItems(const std::vector<InventoryItem>& items) {
  LogInfo(kInventory, "========== INVENTORY FETCH COMPLETE ==========");
  LogInfo(kInventory, "Total items fetched: " + std::to_string(items.size()));
  for (std::size_t i = 0; i < items.size(); ++i) {
    const InventoryItem& item = items[i];
    LogInfo(kInventory, "Item [" + std::to_string(i + 1) + "]:");
    LogInfo(kInventory, "  URI         : " + RedactUri(item.uri));
    LogInfo(kInventory, "  Name        : " + item.Name);
    LogInfo(kInventory, "  SoftwareId  : " + item.SoftwareId);
    LogInfo(kInventory, "  Version     : " + item.Version);
    LogInfo(kInventory, "  TargetId    : " + RedactUri(item.target_id));
  }
  LogInfo(kInventory, std::string(48, '='));
}

// False if the body is empty, which requires another attempt.
bool ReadCollection(const HttpClient& client, const Response& collection,
                    const Config& config, std::vector<InventoryItem>& items) {
  if (collection.body.empty()) {
    LogWarning(kInventory, "200 but empty body, retrying");
    return false;
  }
  const std::vector<std::string> paths = ParseMemberPaths(collection.body);
  LogInfo(kInventory, "Members found: " + std::to_string(paths.size()));
  if (paths.empty()) {
    LogWarning(kInventory, "Members[] is empty or missing");
    return true;
  }
  items = FetchMembers(client, paths, config);
  LogItems(items);
  return true;
}

bool FetchInventoryWithRetry(const Config& config,
                             std::vector<InventoryItem>& items) {
  items.clear();
  const HttpClient client;
  for (long long retries = 0; retries <= config.max_retries; ++retries) {
    if (retries > 0) {
      SleepBeforeRetry(kInventory, config, static_cast<int>(retries - 1));
    }
    std::string used_uri;
    const Response collection =
        GetInventoryCollection(client, config, used_uri);
    LogInfo(kInventory, "Collection HTTP status: " +
                            std::to_string(collection.status_code) +
                            " (used URI: " + RedactUri(used_uri) + ")");
    const Decision decision = Decide(collection.status_code, config);
    if (decision == Decision::kGiveUp) return false;
    if (decision == Decision::kRead &&
        ReadCollection(client, collection, config, items)) {
      return true;
    }
  }
  LogError(kInventory, "Inventory fetch failed after " +
                           std::to_string(config.max_retries) + " retries");
  return false;
}

}  // namespace

bool FetchInventory(const InventoryRequest& request,
                    std::vector<InventoryItem>& items) {
  if (request.ip.empty()) {
    throw std::runtime_error(
        "FetchInventory: InventoryRequest.ip must not be empty");
  }
  items.clear();
  const Config config = LoadConfigFor(request);
  LogInfo(kInventory, "========== INVENTORY FETCH START ==========");
  LogInfo(kInventory, "Config mode");
  LogInfo(kInventory, "Target IP  : " + UriForLog(request.ip));
  LogInfo(kInventory, "Username   : " + config.username);
  LogInfo(kInventory,
          "Inv URIs   : [" + JoinedForLog(config.inventory_uri) + "]");
  return FetchInventoryWithRetry(config, items);
}

}  // namespace quorvane
