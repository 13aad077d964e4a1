// SPDX-License-Identifier: Apache-2.0
// The resources that a client can read, after the public schemas (DSP8010).
#include <algorithm>
#include <charconv>
#include <utility>

#include "simulator/redfish.h"
#include "simulator/redfish_service.h"

namespace quorvane::simulator {
namespace {

Json Link(std::string_view path) { return {{"@odata.id", path}}; }

Json HealthyStatus() { return {{"State", "Enabled"}, {"Health", "OK"}}; }

Json NewResource(const std::string& path, const std::string& type,
                 const std::string& id, const std::string& name) {
  return {
      {"@odata.id", path}, {"@odata.type", type}, {"Id", id}, {"Name", name}};
}

Json Collection(std::string_view path, const std::string& kind,
                const std::vector<std::string>& ids) {
  Json members = Json::array();
  for (const std::string& id : ids) {
    members.push_back(Link(MemberPath(path, id)));
  }
  return {{"@odata.id", path},
          {"@odata.type", '#' + kind + "Collection." + kind + "Collection"},
          {"Name", kind + " Collection"},
          {"Members@odata.count", ids.size()},
          {"Members", std::move(members)}};
}

void Merge(Json& resource, const std::string& properties) {
  if (!properties.empty()) resource.merge_patch(Json::parse(properties));
}

// $skip (an OData query option), as in the nextLink of a collection.
std::size_t ParseSkip(std::string_view query) {
  constexpr std::string_view kKey = "$skip=";
  std::size_t skip = 0;
  if (query.starts_with(kKey)) {
    query.remove_prefix(kKey.size());
    std::from_chars(query.data(), query.data() + query.size(), skip);
  }
  return skip;
}

Json InventoryCollection(const std::string& path, const std::string& query,
                         const Inventory& inventory) {
  const auto& members = inventory.members;
  const std::size_t begin = std::min(ParseSkip(query), members.size());
  const std::size_t page = inventory.page_size > 0
                               ? static_cast<std::size_t>(inventory.page_size)
                               : members.size();
  const std::size_t end = begin + std::min(page, members.size() - begin);
  std::vector<std::string> ids;
  for (std::size_t i = begin; i < end; ++i) ids.push_back(members[i].id);
  Json collection = Collection(path, "SoftwareInventory", ids);
  collection["Members@odata.count"] =
      inventory.reported_count.value_or(static_cast<int>(members.size()));
  if (end < members.size()) {
    collection["Members@odata.nextLink"] =
        path + "?$skip=" + std::to_string(end);
  }
  return collection;
}

Json InventoryDocument(const std::string& path, const InventoryMember& member) {
  Json document =
      NewResource(path, "#SoftwareInventory.v1_3_0.SoftwareInventory",
                  member.id, member.name);
  document["Version"] = member.version;
  document["Manufacturer"] = member.manufacturer;
  document["Updateable"] = member.updateable;
  document["SoftwareId"] = "software-" + member.id;
  document["Status"] = HealthyStatus();
  Merge(document, member.properties);
  return document;
}

std::optional<Json> InventoryResource(const std::string& path,
                                      const std::string& query,
                                      const std::string& base,
                                      const Inventory& inventory) {
  if (path == base) return InventoryCollection(base, query, inventory);
  const std::string id = MemberId(path, base);
  const auto found =
      std::find_if(inventory.members.begin(), inventory.members.end(),
                   // `path` is normalized, so an id may not end with a slash.
                   [&](const auto& m) { return NormalizePath(m.id) == id; });
  if (id.empty() || found == inventory.members.end()) return {};
  return InventoryDocument(path, *found);
}

Json ServiceRoot() {
  Json root = NewResource(std::string(kServiceRoot) + '/',
                          "#ServiceRoot.v1_9_0.ServiceRoot", "RootService",
                          "Root Service");
  root["RedfishVersion"] = "1.11.0";
  root["Systems"] = Link(kSystems);
  root["Chassis"] = Link(kChassisCollection);
  root["UpdateService"] = Link(kUpdateService);
  root["Tasks"] = Link(kTaskService);
  return root;
}

Json TaskService() {
  Json service =
      NewResource(std::string(kTaskService), "#TaskService.v1_2_0.TaskService",
                  "TaskService", "Task Service");
  service["ServiceEnabled"] = true;
  service["CompletedTaskOverWritePolicy"] = "Oldest";
  service["Status"] = HealthyStatus();
  service["Tasks"] = Link(kTasks);
  return service;
}

}  // namespace

std::optional<Json> RedfishService::Resource(const std::string& path,
                                             const std::string& query) const {
  if (path == "/redfish") return Json{{"v1", std::string(kServiceRoot) + '/'}};
  if (path == kServiceRoot) return ServiceRoot();
  if (path == kUpdateService) return UpdateService();
  if (path == kTaskService) return TaskService();
  if (path == kTasks) {
    std::vector<std::string> ids;
    for (const auto& [id, task] : tasks_) ids.push_back(id);
    return Collection(kTasks, "Task", ids);
  }
  if (path == kSystems) {
    return Collection(kSystems, "ComputerSystem", {scenario_.system_id});
  }
  if (path == MemberPath(kSystems, scenario_.system_id)) return System();
  if (auto chassis = ChassisResource(path)) return chassis;
  if (auto member = InventoryResource(
          path, query, std::string(kFirmwareInventory), scenario_.firmware)) {
    return member;
  }
  return InventoryResource(path, query, std::string(kSoftwareInventory),
                           scenario_.software);
}

Json RedfishService::UpdateService() const {
  Json service = NewResource(std::string(kUpdateService),
                             "#UpdateService.v1_8_1.UpdateService",
                             "UpdateService", "Update Service");
  service["ServiceEnabled"] = scenario_.service_enabled;
  service["Status"] = HealthyStatus();
  if (!scenario_.service_enabled) service["Status"]["State"] = "Disabled";
  service["FirmwareInventory"] = Link(kFirmwareInventory);
  service["SoftwareInventory"] = Link(kSoftwareInventory);
  const UploadEndpoints& upload = scenario_.upload;
  if (!upload.multipart_paths.empty()) {
    service["MultipartHttpPushUri"] = upload.multipart_paths.front();
  }
  if (!upload.binary_paths.empty()) {
    service["HttpPushUri"] = upload.binary_paths.front();
  }
  if (upload.max_bytes > 0) service["MaxImageSizeBytes"] = upload.max_bytes;
  service["Actions"] = {{"#UpdateService.SimpleUpdate",
                         {{"target", scenario_.simple_update.path},
                          {"TransferProtocol@Redfish.AllowableValues",
                           scenario_.simple_update.protocols}}}};
  Merge(service, scenario_.update_service_properties);
  return service;
}

Json RedfishService::System() const {
  const std::string path = MemberPath(kSystems, scenario_.system_id);
  Json system = NewResource(path, "#ComputerSystem.v1_14_0.ComputerSystem",
                            scenario_.system_id, "System");
  system["SystemType"] = "Physical";
  system["PowerState"] = power_is_on_ ? "On" : "Off";
  system["Status"] = HealthyStatus();
  for (const InventoryMember& member : scenario_.firmware.members) {
    if (member.id == "BIOS") system["BiosVersion"] = member.version;
  }
  system["Actions"] = {
      {"#ComputerSystem.Reset",
       {{"target", path + "/Actions/ComputerSystem.Reset"},
        {"ResetType@Redfish.AllowableValues", scenario_.reset_types}}}};
  Merge(system, scenario_.system_properties);
  return system;
}

std::optional<Json> RedfishService::ChassisResource(
    const std::string& path) const {
  if (path == kChassisCollection) {
    std::vector<std::string> ids;
    for (const Chassis& chassis : scenario_.chassis) ids.push_back(chassis.id);
    return Collection(kChassisCollection, "Chassis", ids);
  }
  const std::string id = MemberId(path, kChassisCollection);
  const auto found =
      std::find_if(scenario_.chassis.begin(), scenario_.chassis.end(),
                   [&](const Chassis& chassis) { return chassis.id == id; });
  if (id.empty() || found == scenario_.chassis.end()) return {};
  Json document = NewResource(path, "#Chassis.v1_14_0.Chassis", found->id,
                              "Chassis " + found->id);
  document["ChassisType"] = found->chassis_type;
  document["Manufacturer"] = found->manufacturer;
  document["Model"] = found->model;
  document["SerialNumber"] = found->serial_number;
  document["PartNumber"] = found->part_number;
  document["PowerState"] = power_is_on_ ? "On" : "Off";
  document["Status"] = HealthyStatus();
  Merge(document, found->properties);
  return document;
}

}  // namespace quorvane::simulator
