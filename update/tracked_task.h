// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_TRACKED_TASK_H_
#define QUORVANE_UPDATE_TRACKED_TASK_H_

#include <string>

#include "quorvane/http.h"
#include "update/update_run.h"

namespace quorvane {

/// Sets the task ID of `run` from its task URI and a response body.
void SetTaskId(const std::string& body, UpdateRun& run);

/// Whether `TrackTask` logs the task.
enum class LogTask { kNo, kYes };

/// Stores the task of an accepted request in the result: the link in the body,
/// else the Location header (DSP0266, "Asynchronous operations").
void TrackTask(const Response& response, LogTask log_task, UpdateRun& run);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_TRACKED_TASK_H_
