// SPDX-License-Identifier: Apache-2.0
// The phases of an update. Each one fills in the result of the run, logs its
// steps, and returns whether it succeeded. A failed request is a result, not an
// exception. Every phase lets std::bad_alloc pass; every phase but SimpleUpdate
// also lets the std::runtime_error of `BuildBaseUrl` pass, which a
// configuration without an address causes.
#ifndef QUORVANE_UPDATE_PHASES_H_
#define QUORVANE_UPDATE_PHASES_H_

#include "quorvane/http.h"
#include "update/update_run.h"

namespace quorvane {

enum class PhaseResult { kSucceeded, kFailed };

inline PhaseResult SucceededIf(bool condition) {
  return condition ? PhaseResult::kSucceeded : PhaseResult::kFailed;
}

/// Starts a new result. Sends the image in a multipart form (DSP0266,
/// "Multipart HTTP push updates"), to one upload URI after the other. Succeeds
/// if the BMC accepts the image.
PhaseResult RunMultipartUpload(const ImagePath& image, UpdateRun& run);

/// Starts a new result. Sends the unmodified image to the same URIs, for BMCs
/// without multipart uploads. Ends at the first transfer error. Succeeds if the
/// BMC accepts the image.
PhaseResult RunBinaryUpload(const ImagePath& image, UpdateRun& run);

/// Starts a new result. Requests that the BMC downloads the image itself
/// (DSP0266, "Software update", the SimpleUpdate action). Succeeds if the BMC
/// accepts the request.
PhaseResult RunSimpleUpdate(UpdateRun& run);

/// Polls the task of the result until it ends. Succeeds if the task succeeded,
/// if the firmware is staged, if the task disappeared late
/// (`kAppliedPercent`), and if there is no task.
PhaseResult MonitorTask(UpdateRun& run);

/// Monitors the task that the body of `response` names, and logs its URI after
/// `label`. If the body names none, monitors the task of the result.
PhaseResult MonitorTaskOf(const Response& response, const char* label,
                          UpdateRun& run);

/// Requests that the BMC activates the uploaded image, and monitors the task if
/// there is one. Leaves `accepted` and `http_status` unchanged. Succeeds if the
/// firmware is activated or staged.
PhaseResult RunActivation(UpdateRun& run);

/// Requests a reboot of the system (DSP2046, ComputerSystem, Reset), if the
/// rules require it. Leaves `accepted` and `http_status` unchanged. Succeeds if
/// the BMC accepts the reboot, or if the rules require none.
PhaseResult RunRebootPhase(UpdateRun& run);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_PHASES_H_
