// SPDX-License-Identifier: Apache-2.0
// The phases of an update. Each tells its outcome in an UpdateResponse and its
// steps in the log, and throws std::bad_alloc alone.
#ifndef QUORVANE_UPDATE_PHASES_H_
#define QUORVANE_UPDATE_PHASES_H_

#include <string>
#include <vector>

#include "quorvane/config.h"
#include "quorvane/http.h"
#include "quorvane/update.h"

namespace quorvane {

/// Sends the image as a multipart form (DSP0266, "Multipart HTTP push
/// updates") to one upload URI after the other.
UpdateResponse RunMultipartUpload(const HttpClient& client,
                                  const std::string& file_path,
                                  const Config& config,
                                  const std::vector<std::string>& targets);

/// Sends the bare image to the same URIs, for BMCs that know no forms. Ends at
/// the first transfer that fails.
UpdateResponse RunBinaryUpload(const HttpClient& client,
                               const std::string& file_path,
                               const Config& config);

/// Asks the BMC to fetch the image itself (DSP0266, "Software update", the
/// SimpleUpdate action).
UpdateResponse RunSimpleUpdate(const HttpClient& client,
                               const UpdateRequest& request,
                               const Config& config);

/// Follows the task of `result` to its end.
/// @return True when it ended well, when the firmware is staged, when the task
///   went away past half way, or when there is nothing to follow.
bool MonitorTask(const HttpClient& client, const Config& config,
                 UpdateResponse& result);

/// Follows the task that the body of `answer` names, announced by `told`; when
/// it names none, the one of `result`.
bool FollowTask(const HttpClient& client, const Config& config,
                const Response& answer, const char* told,
                UpdateResponse& result);

/// Asks the BMC to apply what was uploaded, and follows the task if there is
/// one. `accepted` and `http_status` stay.
bool RunActivation(const HttpClient& client, const UpdateRequest& request,
                   const Config& config, UpdateResponse& result);

/// Asks the BMC to restart the system (DSP2046, ComputerSystem, Reset), if the
/// rules want it. `accepted` and `http_status` stay.
void RunRebootPhase(const HttpClient& client, const Config& config,
                    UpdateResponse& result);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_PHASES_H_
