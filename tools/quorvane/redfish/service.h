// SPDX-License-Identifier: Apache-2.0
// What a BMC reports about itself before an update (DMTF DSP2046:
// UpdateService, SoftwareInventory, ComputerSystem, Chassis; DSP0266: service
// root).
#ifndef QUORVANE_TOOLS_QUORVANE_REDFISH_SERVICE_H_
#define QUORVANE_TOOLS_QUORVANE_REDFISH_SERVICE_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/quorvane/redfish/resource.h"
#include "tools/quorvane/redfish/tasks.h"

namespace quorvane::tool {

/// The UpdateService. A member without a value is not in the resource.
struct UpdateServiceFacts {
  std::optional<bool> is_enabled = {};            ///< ServiceEnabled
  std::optional<std::string> state = {};          ///< Status.State
  std::optional<std::string> health = {};         ///< Status.Health
  std::optional<double> max_bytes = {};           ///< MaxImageSizeBytes
  std::optional<std::string> multipart_uri = {};  ///< MultipartHttpPushUri
  std::optional<std::string> binary_uri = {};     ///< HttpPushUri
  std::optional<std::string> simple_update_uri = {};
  /// Allowable values of TransferProtocol, of the action or its ActionInfo.
  std::optional<std::vector<std::string>> protocols = {};
  /// FirmwareInventory, then SoftwareInventory.
  std::vector<std::string> inventory_uris = {};
};

struct SystemFacts {
  std::string uri;
  std::optional<std::string> power_state = {};
  std::optional<std::string> reset_uri = {};
  /// Allowable values of ResetType, of the action or its ActionInfo.
  std::optional<std::vector<std::string>> reset_types = {};
};

struct ChassisFacts {
  std::string name = {};
  std::string manufacturer = {};
  std::string model = {};
};

/// A member of the firmware inventory.
struct FirmwareFacts {
  std::string uri;
  std::string name = {};
  std::optional<std::string> version = {};
  std::optional<bool> updateable = {};
};

/// Everything that was read. What could not be read is unknown: it has no
/// value, or an `is_complete` that is false.
struct ServiceFacts {
  bool is_root_read = false;
  std::string product = {};          ///< Empty: unknown.
  std::string redfish_version = {};  ///< Empty: unknown.
  std::optional<UpdateServiceFacts> update_service = {};
  Presence update_service_presence = Presence::kUnknown;
  std::vector<SystemFacts> systems = {};
  bool are_systems_complete =
      false;  ///< Every system was read, or none exists.
  std::optional<ChassisFacts> chassis = {};
  BmcTasks tasks = {};
  /// The collection that `firmware` is from: the first one that was read.
  std::string inventory_uri = {};
  std::vector<FirmwareFacts> firmware = {};
  bool is_firmware_complete = false;
  /// The targets of the request that could be read.
  std::vector<FirmwareFacts> targets = {};
  /// What the BMC does not let the account read (HTTP 401 or 403), sorted.
  std::vector<std::string> refused_uris = {};
  /// Of the inventory collections, and of the URIs that the caller named.
  std::map<std::string, Presence> presence = {};

  [[nodiscard]] Presence PresenceAt(const std::string& uri) const;
};

/// What to read besides the resources that every Redfish service has.
struct FactsRequest {
  /// Inventory collections in the order of preference. Without a response from
  /// one of them, those that the UpdateService names follow.
  std::vector<std::string> inventory_uris = {};
  /// URIs whose presence matters. URIs that the BMC advertises are present
  /// without a request, because a GET of an action need not succeed.
  std::vector<std::string> probed_uris = {};
  /// URIs of components to update. They need not be in the inventory.
  std::vector<std::string> targets = {};
};

/// Reads the facts with a bounded number of GETs.
ServiceFacts ReadFacts(ResourceReader& reader, const FactsRequest& request);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_REDFISH_SERVICE_H_
