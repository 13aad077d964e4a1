// SPDX-License-Identifier: Apache-2.0
// What all phases read out of a BMC's answers.
#ifndef QUORVANE_UPDATE_HELPERS_H_
#define QUORVANE_UPDATE_HELPERS_H_

#include <functional>
#include <string>

#include "quorvane/config.h"
#include "quorvane/http.h"
#include "update/update_run.h"

namespace quorvane {

/// Component tag of every line of an update.
inline constexpr const char* kUpdate = "update";

/// Limit for one transfer of an image, up or down, in milliseconds.
inline constexpr long kImageTimeoutMs = 600'000;

/// The BMC's own words for a refusal: "error"."message" (DSP0266, "Error
/// responses"), else a bare "Message"; or empty.
std::string ExtractErrorMessage(const std::string& body);

/// The text after the last '/' of a URI; empty without one.
std::string LastSegment(const std::string& uri);

/// `LastSegment`, redacted. A slash may be part of a secret, so the whole URI
/// decides what of the segment is secret.
std::string LastSegmentForLog(const std::string& uri);

/// The body's "Id", else the last segment of the task's URI; or empty.
std::string ExtractTaskId(const std::string& task_uri, const std::string& body);

/// Where the body says that a task can be watched: its "@odata.id"; its "Id"
/// below the first of the rules' task URIs; the first argument of the first
/// message whose "MessageId" tells of a task. Or empty.
std::string ExtractTaskUri(const std::string& body, const Config& config);

/// Sets the task ID of `run` from its task URI and `body`.
void SetTaskId(const std::string& body, UpdateRun& run);

/// Whether `TrackTask` logs the task.
enum class LogTask { kNo, kYes };

/// Makes the task that an accepted request created the update's: the body's
/// link, else the Location header (DSP0266, "Asynchronous operations").
void TrackTask(const Response& answer, LogTask log_task, UpdateRun& run);

/// POSTs the parameters of a Redfish action with the account of `config`; one
/// minute at most.
/// @throws as `HttpClient::post_json`.
Response PostAction(const UpdateRun& run, const std::string& url,
                    const std::string& body);

/// The answer to a request, or one of status 0 when none arrived. For phases
/// whose rules decide about that too; the client has logged the reason.
Response AnswerOrNone(const std::function<Response()>& request);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_HELPERS_H_
