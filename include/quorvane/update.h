// SPDX-License-Identifier: Apache-2.0
/// @file
/// One firmware update, from the image to the reboot of the system.
#ifndef QUORVANE_UPDATE_H_
#define QUORVANE_UPDATE_H_

#include <string>
#include <vector>

#include "quorvane/export.h"
#include "quorvane/inventory.h"

namespace quorvane {

/// The server, the image and the targets of an update. Strings must not contain
/// NUL: the text after it is not sent.
struct UpdateRequest {
  std::string bmc_ip;    ///< Address or host name, with ":port" if needed.
  std::string username;  ///< BMC account.
  std::string password;  ///< Password of the account; never logged.
  /// URI of the image on a share or web server. The BMC downloads it itself
  /// (SimpleUpdate). If the BMC rejects that, the library downloads the image
  /// and uploads it.
  std::string image_uri;
  std::string local_file;      ///< Update package; precedes `image_uri`.
  std::string share_username;  ///< Account of the share; may be empty.
  std::string share_password;  ///< Its password; never logged.
  /// Redfish URIs of the components to update. Empty: the BMC decides, and no
  /// activation follows an upload.
  std::vector<std::string> targets;
  /// Whether the BMC verifies the certificate of the share (DSP2046,
  /// SimpleUpdate, VerifyRemoteServerCertificate).
  bool verify_remote_server_certificate = false;
  /// Inventory from an earlier call; empty: the update reads it first.
  std::vector<InventoryItem> prefetched_inventory;
};

/// The result of an update.
struct UpdateResponse {
  bool accepted = false;  ///< The BMC accepted the image or SimpleUpdate.
  /// Status of the last upload or SimpleUpdate request; 0: no response.
  long http_status = 0;
  std::string task_uri;           ///< Task of the update, or of the reboot.
  std::string task_id;            ///< Its Id.
  std::string task_state;         ///< Last TaskState (DSP2046, Task).
  int percent_complete = -1;      ///< Last PercentComplete; -1: not reported.
  std::string message;            ///< The outcome as text.
  bool reboot_performed = false;  ///< The BMC accepted the reboot.
};

/// Updates the firmware of one server, with the rules file next to the library:
/// inventory, upload or SimpleUpdate with their fallbacks, task, activation,
/// reboot. Blocks until the end, which can take hours. The rules file limits
/// the time, and the log contains every step.
///
/// Sends the credentials as HTTP basic authentication, whatever the rules file
/// specifies. Several threads can update different servers at once, if an
/// `HttpClient` exists the whole time. Two updates cannot download images of
/// the same name at the same time, because both use the same file in /tmp.
///
/// @return The result. It also reports a rejection, a failed task, and a BMC
///   that cannot be reached; none of these is thrown.
/// @throws std::runtime_error
///   - "PerformUpdate: bmc_ip must not be empty";
///   - "PerformUpdate: either image_uri or local_file must be set";
///   - the errors of `LoadConfigAuto`.
/// @throws std::bad_alloc if memory runs out.
[[nodiscard]] QUORVANE_EXPORT UpdateResponse
PerformUpdate(const UpdateRequest& request);

/// The result as one JSON object, indented, without a final newline.
/// "percent_complete" is null if unknown. Strings must be UTF-8.
/// @throws std::bad_alloc if memory runs out.
QUORVANE_EXPORT std::string UpdateResponseToJson(
    const UpdateResponse& response);

/// Writes `UpdateResponseToJson` to `path`, and replaces the content of the
/// file. Does not create directories. The path can also be a character device,
/// or a pipe that has a reader, such as /dev/stdout. Rejects a block device and
/// a pipe without a reader.
/// @return Whether the whole text was written. Logs an error for a path that
///   cannot be opened or is rejected; does not log a failed write.
[[nodiscard]] QUORVANE_EXPORT bool SaveUpdateResponseJson(
    const std::string& path, const UpdateResponse& response);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_H_
