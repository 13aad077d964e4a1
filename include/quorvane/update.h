// SPDX-License-Identifier: Apache-2.0
/// @file
/// One firmware update, from the image to the restart of the system.
#ifndef QUORVANE_UPDATE_H_
#define QUORVANE_UPDATE_H_

#include <string>
#include <vector>

#include "quorvane/export.h"
#include "quorvane/inventory.h"

namespace quorvane {

/// What to update, and from where. The caller owns it; nothing is changed. No
/// text may hold a NUL: what follows one is not sent.
struct UpdateRequest {
  std::string bmc_ip;    ///< Address or host name, with ":port" if needed.
  std::string username;  ///< BMC account.
  std::string password;  ///< Its password; never logged.
  /// Where the image lies on a share or web server. The BMC fetches it itself
  /// (SimpleUpdate); refused, the library downloads and uploads it.
  std::string image_uri;
  std::string local_file;      ///< Update package; goes before `image_uri`.
  std::string share_username;  ///< For the share, if it asks; else empty.
  std::string share_password;  ///< Its password; never logged.
  /// Redfish URIs of what is to be updated. Empty: the BMC decides, and an
  /// upload is not followed by an activation request.
  std::vector<std::string> targets;
  /// Shall the BMC check the share's certificate (DSP2046, SimpleUpdate,
  /// VerifyRemoteServerCertificate)?
  bool verify_remote_server_certificate = false;
  /// Inventory that the caller has read already; empty: it is read first.
  std::vector<InventoryItem> prefetched_inventory;
};

/// How an update ended.
struct UpdateResponse {
  bool accepted = false;  ///< The BMC took the image or the SimpleUpdate.
  /// Status of the last phase's decisive request; 0: no answer arrived.
  long http_status = 0;
  std::string task_uri;           ///< Task of the update, or of the restart.
  std::string task_id;            ///< Its Id.
  std::string task_state;         ///< Last TaskState seen (DSP2046, Task).
  int percent_complete = -1;      ///< Last PercentComplete; -1: never told.
  std::string message;            ///< The outcome in words.
  bool reboot_performed = false;  ///< The restart was accepted.
};

/// Updates the firmware of one server by the rules file beside the library:
/// inventory, upload or SimpleUpdate with their fall-backs, the task, the
/// activation, the restart. Blocks until the end, which may take hours; the
/// rules file bounds it, and every step stands in the log.
///
/// Credentials are sent as HTTP basic authentication, whatever the rules file
/// says. Calls for different servers may run on several threads at once if an
/// `HttpClient` lives around them all. Two that must download an image of the
/// same name at the same time do not both succeed: the file in /tmp is one.
///
/// @return How it ended. A refusal, a failed task or a BMC that cannot be
///   reached is told here, not thrown.
/// @throws std::runtime_error
///   - "PerformUpdate: bmc_ip must not be empty";
///   - "PerformUpdate: either image_uri or local_file must be set";
///   - what `LoadConfigAuto` throws.
/// @throws std::bad_alloc when memory runs out.
[[nodiscard]] QUORVANE_EXPORT UpdateResponse
PerformUpdate(const UpdateRequest& request);

/// The record as one JSON object, indented, without a newline at its end.
/// "percent_complete" is null while unknown. Strings are expected in UTF-8.
/// @throws std::bad_alloc when memory runs out.
QUORVANE_EXPORT std::string UpdateResponseToJson(
    const UpdateResponse& response);

/// Writes `UpdateResponseToJson` to `path`, over what is there. Directories are
/// not created. The path may also name a character device or a pipe that has a
/// reader, such as /dev/stdout; a block device or a pipe without a reader is
/// rejected.
/// @return Whether the whole text was written. A path that cannot be opened or
///   is rejected is logged as an error; a failed write is not logged.
[[nodiscard]] QUORVANE_EXPORT bool SaveUpdateResponseJson(
    const std::string& path, const UpdateResponse& response);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_H_
