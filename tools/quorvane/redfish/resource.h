// SPDX-License-Identifier: Apache-2.0
// Resources of a BMC, and careful access to their properties: every property of
// a Redfish resource is optional, and a BMC can return any type.
#ifndef QUORVANE_TOOLS_QUORVANE_REDFISH_RESOURCE_H_
#define QUORVANE_TOOLS_QUORVANE_REDFISH_RESOURCE_H_

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace quorvane::tool {

/// DSP0266, "Service root".
constexpr const char* kServiceRootUri = "/redfish/v1/";

/// The response to a GET.
struct Resource {
  std::string uri;
  long status = 0;  ///< RFC 9110, section 15; 0: no response.
  std::string body = {};
  std::string reason = {};  ///< Why there is no response, or no body.
};

/// Reads resources of one BMC.
class ResourceReader {
 public:
  virtual ~ResourceReader() = default;
  /// Sends a GET to each URI, which is a path on the BMC.
  /// @return As many resources as URIs, in the same order.
  virtual std::vector<Resource> Read(const std::vector<std::string>& uris) = 0;
};

/// Whether there is a resource. Only a 404 proves that there is none.
enum class Presence { kUnknown, kAbsent, kPresent };

/// What a GET reveals. Present is a JSON object, no content, or 405 for a URI
/// that accepts only other methods (RFC 9110, section 15.5.6). Any other
/// content proves nothing: some web servers return their start page for every
/// path.
Presence PresenceOf(const Resource& resource);

/// Whether the BMC does not let the account read it (HTTP 401 or 403).
bool IsRefused(const Resource& resource);

/// Keeps each resource, so that it is requested once.
class ResourceCache {
 public:
  explicit ResourceCache(ResourceReader& reader) : reader_(reader) {}

  /// Reads what is not known yet. What got no response or 503 is requested once
  /// more, if the BMC responded to anything.
  void Fetch(const std::vector<std::string>& uris);

  /// The resource at `uri`, which is read if it is not known yet.
  const Resource& At(const std::string& uri);

  /// The JSON object at `uri`; nothing if it cannot be read completely.
  std::optional<nlohmann::json> ObjectAt(const std::string& uri);

  [[nodiscard]] const std::map<std::string, Resource>& resources() const {
    return resources_;
  }

 private:
  /// @return Whether there was any response.
  bool ReadInto(const std::vector<std::string>& uris);

  ResourceReader& reader_;
  std::map<std::string, Resource> resources_ = {};
};

/// The JSON object in a successful response; nothing if it is anything else.
std::optional<nlohmann::json> ObjectIn(const Resource& resource);

/// @{ A property of `object`; nothing if it is missing or has another type.
std::optional<std::string> StringIn(const nlohmann::json& object,
                                    const char* key);
std::optional<double> NumberIn(const nlohmann::json& object, const char* key);
std::optional<bool> BoolIn(const nlohmann::json& object, const char* key);
/// @}

/// `number` without a fraction if it has none; null without a number.
nlohmann::json NumberJson(std::optional<double> number);

/// The object at `key`; an empty one if there is none.
nlohmann::json SubObject(const nlohmann::json& object, const char* key);

/// The strings in the array at `key`; nothing if there is no array, or if it
/// contains no string.
std::optional<std::vector<std::string>> StringsIn(const nlohmann::json& object,
                                                  const char* key);

/// The target of the link at `key` ("@odata.id", DSP0266).
std::optional<std::string> LinkIn(const nlohmann::json& object,
                                  const char* key);

/// The members that a collection lists (DSP0266, "Resource collections").
struct Members {
  std::vector<std::string> uris = {};
  /// All pages were read, and `uris` were not cut at the limit.
  bool is_complete = false;
};

/// Reads a collection and the pages that follow its first one.
/// @param limit  Most members in the result.
Members ReadMembers(ResourceCache& cache, const std::string& collection,
                    std::size_t limit);

/// Whether two paths name one resource: DSP0266 lets a client add or leave out
/// a trailing slash.
bool IsSamePath(const std::string& one, const std::string& other);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_REDFISH_RESOURCE_H_
