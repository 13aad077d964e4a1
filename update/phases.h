// SPDX-License-Identifier: Apache-2.0
// The phases of an update. Each writes its outcome into the result of the run
// and logs its steps. A request that fails is an outcome. Every phase passes on
// std::bad_alloc; every phase but SimpleUpdate also the std::runtime_error of
// `BuildBaseUrl`, for a run whose configuration has no address.
#ifndef QUORVANE_UPDATE_PHASES_H_
#define QUORVANE_UPDATE_PHASES_H_

#include "quorvane/http.h"
#include "update/update_run.h"

namespace quorvane {

/// Starts a new result: sends the image as a multipart form (DSP0266,
/// "Multipart HTTP push updates") to one upload URI after the other.
void RunMultipartUpload(const ImagePath& image, UpdateRun& run);

/// Starts a new result: sends the raw image to the same URIs, for BMCs without
/// multipart uploads. Ends at the first transfer that fails.
void RunBinaryUpload(const ImagePath& image, UpdateRun& run);

/// Starts a new result: asks the BMC to fetch the image itself (DSP0266,
/// "Software update", the SimpleUpdate action).
void RunSimpleUpdate(UpdateRun& run);

/// Follows the task of the result to its end.
/// @return True when it ended well, when the firmware is staged, when the task
///   went away past half way, or when there is nothing to follow.
bool MonitorTask(UpdateRun& run);

/// Follows the task that the body of `answer` names, which is logged after
/// `label`; when it names none, the one of the result.
bool MonitorTaskOf(const Response& answer, const char* label, UpdateRun& run);

/// Asks the BMC to apply what was uploaded, and follows the task if there is
/// one. `accepted` and `http_status` stay.
/// @return True when the firmware was activated or staged.
bool RunActivation(UpdateRun& run);

/// Asks the BMC to restart the system (DSP2046, ComputerSystem, Reset), if the
/// rules want it. `accepted` and `http_status` stay.
void RunRebootPhase(UpdateRun& run);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_PHASES_H_
