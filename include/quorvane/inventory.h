// SPDX-License-Identifier: Apache-2.0
/// @file
/// The firmware inventory and the chassis of a server (DSP2046,
/// SoftwareInventory and Chassis).
#ifndef QUORVANE_INVENTORY_H_
#define QUORVANE_INVENTORY_H_

#include <string>
#include <vector>

#include "quorvane/export.h"

namespace quorvane {

/// The BMC to read, and its account.
struct InventoryRequest {
  std::string ip;  ///< Address or host name, with ":port" if needed.
  std::string username;
  std::string password;
};

/// One item of the firmware inventory. A property that the BMC does not report,
/// or not as a string, is empty.
struct InventoryItem {
  std::string uri;         ///< "@odata.id" of the item in the collection.
  std::string Name;        ///< Readable name, e.g. "BMC firmware".
  std::string SoftwareId;  ///< Distinguishes images with the same name.
  std::string Version;     ///< Any text; versions cannot be ordered.
  std::string target_id;   ///< "@odata.id" of the first RelatedItem.
};

/// Reads the firmware inventory of one server, with the rules file next to the
/// library. Uses the address and credentials of `request`, and sends the
/// credentials as HTTP basic authentication, whatever the rules file specifies.
///
/// Skips a member that returns an error, with a warning in the log.
///
/// @param request  `ip` must not be empty.
/// @param items    Cleared, then filled on success.
/// @return True if the collection was read, even if it is empty; false if the
///   BMC refused the login (401, 403), if a rule ended the inventory, or if all
///   attempts failed.
/// @throws std::runtime_error if `request.ip` is empty, if the rules file
/// cannot
///   be loaded, or if there is no response from a member, or from the last
///   collection URI at its second request.
[[nodiscard]] QUORVANE_EXPORT bool FetchInventory(
    const InventoryRequest& request, std::vector<InventoryItem>& items);

/// The items as one JSON object, {"inventory": [...]}, indented, without a
/// final newline. Each item has "id", "Name", "SoftwareId", "Version" and
/// "target_id", even if they are empty. Strings must be UTF-8.
/// @throws std::bad_alloc if memory runs out.
QUORVANE_EXPORT std::string InventoryToJson(
    const std::vector<InventoryItem>& items);

/// Writes `InventoryToJson` to `path`, and replaces the content of the file.
/// Does not create directories. The path can also be a character device, or a
/// pipe that has a reader, such as /dev/stdout. Rejects a block device and a
/// pipe without a reader.
/// @return Whether the whole text was written. Logs an error for a path that
///   cannot be opened or is rejected; does not log a failed write.
[[nodiscard]] QUORVANE_EXPORT bool SaveInventoryJson(
    const std::string& path, const std::vector<InventoryItem>& items);

/// The machine of a BMC.
struct ChassisInfo {
  std::string Manufacturer;
  std::string Model;  ///< May be empty.
  std::string Name;   ///< After `Config::chassis_name_mappings`.
};

/// Identifies the server: the first chassis with Manufacturer, Model and Name,
/// else the first one with Manufacturer and Name. The first matching mapping of
/// the rules file replaces the name.
///
/// @param info  Written only on success.
/// @return False if no chassis has the fields, or if the BMC returns an error
/// or
///   no response, which is logged; also false, without a log line, if
///   `request.ip` is empty.
/// @throws std::runtime_error if the rules file cannot be loaded.
[[nodiscard]] QUORVANE_EXPORT bool FetchChassisInfo(
    const InventoryRequest& request, ChassisInfo& info);

}  // namespace quorvane

#endif  // QUORVANE_INVENTORY_H_
