// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/redfish/resource.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>
#include <utility>

#include "tools/quorvane/base/http_status.h"

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

constexpr long kUnavailable = 503;

bool IsSuccess(long status) { return status >= 200 && status < 300; }

const Json* PropertyIn(const Json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

std::string_view WithoutSlash(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

Presence PresenceOf(const Resource& resource) {
  const bool is_empty = resource.body.empty() && resource.reason.empty();
  if (resource.status == kHttpMethodNotAllowed ||
      (IsSuccess(resource.status) && (is_empty || ObjectIn(resource)))) {
    return Presence::kPresent;
  }
  return resource.status == kHttpNotFound ? Presence::kAbsent
                                          : Presence::kUnknown;
}

bool IsRefused(const Resource& resource) {
  return resource.status == kHttpUnauthorized ||
         resource.status == kHttpForbidden;
}

bool ResourceCache::ReadInto(const std::vector<std::string>& uris) {
  if (uris.empty()) return false;
  bool any_response = false;
  for (Resource& resource : reader_.Read(uris)) {
    any_response = any_response || resource.status != 0;
    std::string uri = resource.uri;
    resources_.insert_or_assign(std::move(uri), std::move(resource));
  }
  return any_response;
}

void ResourceCache::Fetch(const std::vector<std::string>& uris) {
  std::vector<std::string> missing;
  for (const std::string& uri : uris) {
    if (resources_.contains(uri) ||
        std::find(missing.begin(), missing.end(), uri) != missing.end()) {
      continue;
    }
    missing.push_back(uri);
  }
  if (!ReadInto(missing)) return;
  std::vector<std::string> failed;
  for (const std::string& uri : missing) {
    const long status = At(uri).status;
    if (status == 0 || status == kUnavailable) failed.push_back(uri);
  }
  ReadInto(failed);
}

const Resource& ResourceCache::At(const std::string& uri) {
  if (!resources_.contains(uri)) Fetch({uri});
  const auto [found, is_new] = resources_.try_emplace(uri);
  if (is_new) found->second.uri = uri;
  return found->second;
}

std::optional<Json> ResourceCache::ObjectAt(const std::string& uri) {
  return ObjectIn(At(uri));
}

std::optional<Json> ObjectIn(const Resource& resource) {
  if (!IsSuccess(resource.status)) return std::nullopt;
  Json json = Json::parse(resource.body, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object()) return std::nullopt;
  return json;
}

std::optional<std::string> StringIn(const Json& object, const char* key) {
  const Json* value = PropertyIn(object, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<double> NumberIn(const Json& object, const char* key) {
  const Json* value = PropertyIn(object, key);
  if (value == nullptr || !value->is_number()) return std::nullopt;
  return value->get<double>();
}

std::optional<bool> BoolIn(const Json& object, const char* key) {
  const Json* value = PropertyIn(object, key);
  if (value == nullptr || !value->is_boolean()) return std::nullopt;
  return value->get<bool>();
}

Json NumberJson(std::optional<double> number) {
  constexpr double kMaxExact = 9007199254740992;  // 2 to the power of 53
  if (!number) return {};
  if (std::trunc(*number) != *number || std::abs(*number) > kMaxExact) {
    return *number;
  }
  return static_cast<std::int64_t>(*number);
}

Json SubObject(const Json& object, const char* key) {
  const Json* value = PropertyIn(object, key);
  return value != nullptr && value->is_object() ? *value : Json::object();
}

std::optional<std::vector<std::string>> StringsIn(const Json& object,
                                                  const char* key) {
  const Json* value = PropertyIn(object, key);
  std::vector<std::string> strings;
  if (value == nullptr || !value->is_array()) return std::nullopt;
  for (const Json& one : *value) {
    if (one.is_string()) strings.push_back(one.get<std::string>());
  }
  if (strings.empty()) return std::nullopt;
  return strings;
}

std::optional<std::string> LinkIn(const Json& object, const char* key) {
  return StringIn(SubObject(object, key), "@odata.id");
}

Members ReadMembers(ResourceCache& cache, const std::string& collection,
                    std::size_t limit) {
  constexpr std::size_t kMaxPages = 100;
  Members members;
  std::set<std::string> pages;
  std::optional<std::string> page = collection;
  // A page that links back to an earlier one would never end.
  while (page && pages.size() < kMaxPages && pages.insert(*page).second) {
    const std::optional<Json> json = cache.ObjectAt(*page);
    const Json* list = json ? PropertyIn(*json, "Members") : nullptr;
    if (list == nullptr || !list->is_array()) return members;
    for (const Json& member : *list) {
      const auto uri = StringIn(member, "@odata.id");
      if (!uri) continue;
      if (members.uris.size() == limit) return members;
      members.uris.push_back(*uri);
    }
    page = StringIn(*json, "Members@odata.nextLink");
  }
  members.is_complete = !page;
  return members;
}

bool IsSamePath(const std::string& one, const std::string& other) {
  return WithoutSlash(one) == WithoutSlash(other);
}

}  // namespace quorvane::tool
