// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/redfish/service.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMaxSystems = 4;
constexpr std::size_t kMaxChassis = 8;
constexpr std::size_t kMaxFirmware = 2048;

// A push URI may be absolute (DSP2046, UpdateService). The rules contain paths.
std::optional<std::string> PathIn(const Json& object, const char* key) {
  auto uri = StringIn(object, key);
  if (!uri || uri->empty()) return std::nullopt;
  return PathOf(*uri);
}

// An action of a resource: its target, and the allowable values of a parameter.
struct Action {
  std::optional<std::string> target = {};
  std::optional<std::vector<std::string>> values = {};
};

// The values stand in the action, or in the resource that it names (DSP0266,
// "Action info").
Action ActionIn(ResourceCache& cache, const Json& resource, const char* name,
                const std::string& parameter) {
  const Json json = SubObject(SubObject(resource, "Actions"), name);
  const std::string key = parameter + "@Redfish.AllowableValues";
  Action action{.target = PathIn(json, "target"),
                .values = StringsIn(json, key.c_str())};
  const auto info_uri = StringIn(json, "@Redfish.ActionInfo");
  if (action.values || !info_uri) return action;
  const auto info = cache.ObjectAt(*info_uri);
  const auto parameters =
      info ? info->find("Parameters") : Json::const_iterator();
  if (!info || parameters == info->end() || !parameters->is_array()) {
    return action;
  }
  for (const Json& one : *parameters) {
    if (StringIn(one, "Name") == parameter) {
      action.values = StringsIn(one, "AllowableValues");
    }
  }
  return action;
}

UpdateServiceFacts UpdateServiceFrom(ResourceCache& cache, const Json& json) {
  UpdateServiceFacts facts;
  const Json status = SubObject(json, "Status");
  facts.is_enabled = BoolIn(json, "ServiceEnabled");
  facts.state = StringIn(status, "State");
  facts.health = StringIn(status, "Health");
  facts.max_bytes = NumberIn(json, "MaxImageSizeBytes");
  // DSP2046: 0 or less is no limit that an image could exceed.
  if (facts.max_bytes && *facts.max_bytes <= 0) facts.max_bytes.reset();
  facts.multipart_uri = PathIn(json, "MultipartHttpPushUri");
  facts.binary_uri = PathIn(json, "HttpPushUri");
  Action update =
      ActionIn(cache, json, "#UpdateService.SimpleUpdate", "TransferProtocol");
  facts.simple_update_uri = std::move(update.target);
  facts.protocols = std::move(update.values);
  for (const char* key : {"FirmwareInventory", "SoftwareInventory"}) {
    if (auto uri = LinkIn(json, key)) {
      facts.inventory_uris.push_back(*std::move(uri));
    }
  }
  return facts;
}

FirmwareFacts FirmwareFrom(const std::string& uri, const Json& json) {
  return {.uri = uri,
          .name = StringIn(json, "Name").value_or(""),
          .version = StringIn(json, "Version"),
          .updateable = BoolIn(json, "Updateable")};
}

class FactReader {
 public:
  FactReader(ResourceReader& reader, const FactsRequest& request)
      : cache_(reader), request_(request) {}

  ServiceFacts Read() {
    ReadRoot();
    ReadUpdateService();
    ReadSystems();
    ReadChassis();
    facts_.tasks = ReadTasks(cache_, task_service_);
    ReadFirmware();
    ReadTargets();
    ReadPresence();
    for (const auto& [uri, resource] : cache_.resources()) {
      if (IsRefused(resource)) facts_.refused_uris.push_back(uri);
    }
    return std::move(facts_);
  }

 private:
  void ReadRoot() {
    const Json root = cache_.ObjectAt(kServiceRootUri).value_or(Json::object());
    facts_.is_root_read = !root.empty();
    facts_.product = StringIn(root, "Product").value_or("");
    facts_.redfish_version = StringIn(root, "RedfishVersion").value_or("");
    const auto link = [&](const char* key, const char* usual) {
      return LinkIn(root, key).value_or(usual);
    };
    update_service_ = link("UpdateService", "/redfish/v1/UpdateService");
    systems_ = link("Systems", "/redfish/v1/Systems");
    chassis_ = link("Chassis", "/redfish/v1/Chassis");
    task_service_ = TaskServiceUri(cache_);
    cache_.Fetch({update_service_, systems_, chassis_, task_service_});
  }

  void ReadUpdateService() {
    facts_.update_service_presence = PresenceOf(cache_.At(update_service_));
    if (const auto json = cache_.ObjectAt(update_service_)) {
      facts_.update_service = UpdateServiceFrom(cache_, *json);
    }
  }

  void ReadSystems() {
    const Members members = ReadMembers(cache_, systems_, kMaxSystems);
    facts_.are_systems_complete =
        members.is_complete ||
        PresenceOf(cache_.At(systems_)) == Presence::kAbsent;
    cache_.Fetch(members.uris);
    for (const std::string& uri : members.uris) {
      const auto json = cache_.ObjectAt(uri);
      if (!json) facts_.are_systems_complete = false;
      if (!json) continue;
      Action reset =
          ActionIn(cache_, *json, "#ComputerSystem.Reset", "ResetType");
      facts_.systems.push_back({.uri = uri,
                                .power_state = StringIn(*json, "PowerState"),
                                .reset_uri = std::move(reset.target),
                                .reset_types = std::move(reset.values)});
    }
  }

  // The first chassis with a manufacturer is the server; others can be
  // enclosures and boards without one.
  void ReadChassis() {
    const Members members = ReadMembers(cache_, chassis_, kMaxChassis);
    cache_.Fetch(members.uris);
    for (const std::string& uri : members.uris) {
      const auto json = cache_.ObjectAt(uri);
      if (!json) continue;
      ChassisFacts chassis{
          .name = StringIn(*json, "Name").value_or(""),
          .manufacturer = StringIn(*json, "Manufacturer").value_or(""),
          .model = StringIn(*json, "Model").value_or("")};
      const bool is_complete = !chassis.manufacturer.empty();
      if (!facts_.chassis || is_complete) facts_.chassis = std::move(chassis);
      if (is_complete) return;
    }
  }

  void ReadFirmware() {
    std::vector<std::string> collections = request_.inventory_uris;
    if (facts_.update_service) {
      const auto& advertised = facts_.update_service->inventory_uris;
      collections.insert(collections.end(), advertised.begin(),
                         advertised.end());
    }
    cache_.Fetch(collections);
    for (const std::string& uri : collections) {
      facts_.presence[uri] = PresenceOf(cache_.At(uri));
    }
    const auto first = std::find_if(collections.begin(), collections.end(),
                                    [&](const std::string& uri) {
                                      return cache_.ObjectAt(uri).has_value();
                                    });
    if (first == collections.end()) return;
    facts_.inventory_uri = *first;
    const Members members = ReadMembers(cache_, *first, kMaxFirmware);
    facts_.is_firmware_complete = members.is_complete;
    cache_.Fetch(members.uris);
    for (const std::string& uri : members.uris) {
      const auto json = cache_.ObjectAt(uri);
      facts_.is_firmware_complete =
          facts_.is_firmware_complete && json.has_value();
      facts_.firmware.push_back(json ? FirmwareFrom(uri, *json)
                                     : FirmwareFacts{.uri = uri});
    }
  }

  void ReadTargets() {
    cache_.Fetch(request_.targets);
    for (const std::string& uri : request_.targets) {
      facts_.presence[uri] = PresenceOf(cache_.At(uri));
      const auto json = cache_.ObjectAt(uri);
      if (json) facts_.targets.push_back(FirmwareFrom(uri, *json));
    }
  }

  void ReadPresence() {
    std::vector<std::string> advertised;
    const auto add = [&](const std::optional<std::string>& uri) {
      if (uri) advertised.push_back(*uri);
    };
    if (facts_.update_service) {
      add(facts_.update_service->multipart_uri);
      add(facts_.update_service->binary_uri);
      add(facts_.update_service->simple_update_uri);
    }
    for (const SystemFacts& system : facts_.systems) add(system.reset_uri);
    std::vector<std::string> others;
    for (const std::string& uri : request_.probed_uris) {
      const bool is_advertised = std::any_of(
          advertised.begin(), advertised.end(),
          [&](const std::string& one) { return IsSamePath(one, uri); });
      if (is_advertised) facts_.presence[uri] = Presence::kPresent;
      if (!is_advertised) others.push_back(uri);
    }
    cache_.Fetch(others);
    for (const std::string& uri : others) {
      facts_.presence[uri] = PresenceOf(cache_.At(uri));
    }
  }

  ResourceCache cache_;
  const FactsRequest& request_;
  std::string update_service_, systems_, chassis_, task_service_;
  ServiceFacts facts_ = {};
};

}  // namespace

Presence ServiceFacts::PresenceAt(const std::string& uri) const {
  const auto found = presence.find(uri);
  return found == presence.end() ? Presence::kUnknown : found->second;
}

ServiceFacts ReadFacts(ResourceReader& reader, const FactsRequest& request) {
  return FactReader(reader, request).Read();
}

}  // namespace quorvane::tool
