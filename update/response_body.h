// SPDX-License-Identifier: Apache-2.0
// What the phases read from the body of a response.
#ifndef QUORVANE_UPDATE_RESPONSE_BODY_H_
#define QUORVANE_UPDATE_RESPONSE_BODY_H_

#include <string>

#include "quorvane/config.h"

namespace quorvane {

/// The error message of the BMC: "error"."message" (DSP0266, "Error
/// responses"), else a top-level "Message"; or empty.
std::string ExtractErrorMessage(const std::string& body);

/// The "Id" of the body, else the last segment of the task URI; or empty.
std::string ExtractTaskId(const std::string& task_uri, const std::string& body);

/// The URI of the task that the body names: its "@odata.id"; else its "Id",
/// appended to the first task URI of the rules; else the first argument of the
/// first message whose "MessageId" is that of a task; or empty.
std::string ExtractTaskUri(const std::string& body, const Config& config);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_RESPONSE_BODY_H_
