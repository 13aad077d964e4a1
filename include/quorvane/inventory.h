// SPDX-License-Identifier: Apache-2.0
/// @file
/// What firmware a server runs, and what machine it is (DSP2046,
/// SoftwareInventory and Chassis).
#ifndef QUORVANE_INVENTORY_H_
#define QUORVANE_INVENTORY_H_

#include <string>
#include <vector>

#include "quorvane/export.h"

namespace quorvane {

/// Which BMC to read, and as whom.
struct InventoryRequest {
  std::string ip;  ///< Address or host name, with ":port" if needed.
  std::string username;
  std::string password;
};

/// One firmware as the BMC lists it. What the BMC left out, or gave as
/// something else than a string, is empty.
struct InventoryItem {
  std::string uri;         ///< "@odata.id", exactly as the collection lists it.
  std::string Name;        ///< As people know it, e.g. "BMC firmware".
  std::string SoftwareId;  ///< What tells two images apart that share a name.
  std::string Version;     ///< Free text; no order can be read from it.
  std::string target_id;   ///< "@odata.id" of the first RelatedItem.
};

/// Reads the firmware inventory of one server by the rules file beside the
/// library. Address and credentials come from `request`, and the credentials
/// are sent as HTTP basic authentication whatever the rules file says.
///
/// A member that cannot be read is left out, with a warning in the log.
///
/// @param request  Read only; `ip` must not be empty.
/// @param items    The caller's list; emptied, and filled on success.
/// @return True when the collection was read, be it empty; false when the
///   login was refused (401, 403), a rule gave up or the retries ran out.
/// @throws std::runtime_error when `request.ip` is empty, when the rules file
///   cannot be loaded, or when a member, or the last collection URI at its
///   last resort, brought no answer.
[[nodiscard]] QUORVANE_EXPORT bool FetchInventory(
    const InventoryRequest& request, std::vector<InventoryItem>& items);

/// The items as one JSON object, {"inventory": [...]}, indented, without a
/// newline at its end. Each item has "id", "Name", "SoftwareId", "Version" and
/// "target_id", empty ones included. Strings are expected in UTF-8.
/// @throws std::bad_alloc when memory runs out.
QUORVANE_EXPORT std::string InventoryToJson(
    const std::vector<InventoryItem>& items);

/// Writes `InventoryToJson` to `path`, over what is there. Directories are
/// not created. The path may also name a character device or a pipe that has a
/// reader, such as /dev/stdout; a block device or a pipe without a reader is
/// rejected.
/// @return Whether the whole text was written. A path that cannot be opened or
///   is rejected is logged as an error; a failed write is not logged.
[[nodiscard]] QUORVANE_EXPORT bool SaveInventoryJson(
    const std::string& path, const std::vector<InventoryItem>& items);

/// What machine a BMC belongs to.
struct ChassisInfo {
  std::string Manufacturer;
  std::string Model;  ///< May be empty.
  std::string Name;   ///< After `Config::chassis_name_mappings`.
};

/// Identifies the server: the first chassis with Manufacturer, Model and Name,
/// else the first with Manufacturer and Name. The first mapping of the rules
/// file that matches replaces the name.
///
/// @param request  Read only.
/// @param info     The caller's record; written on success alone.
/// @return False when no chassis will do, when the BMC does not answer or
///   refuses, which is logged; also, without a word, for an empty `request.ip`.
/// @throws std::runtime_error when the rules file cannot be loaded.
[[nodiscard]] QUORVANE_EXPORT bool FetchChassisInfo(
    const InventoryRequest& request, ChassisInfo& info);

}  // namespace quorvane

#endif  // QUORVANE_INVENTORY_H_
