// SPDX-License-Identifier: Apache-2.0
// What a BMC states in the bodies of its responses.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_BMC_TEXT_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_BMC_TEXT_H_

#include <string>

namespace quorvane::tool {

/// The reasons in a Redfish error response (DSP0266, "Error responses"):
/// error.message and the messages of @Message.ExtendedInfo. Of a body that is
/// not JSON, its beginning.
std::string ErrorText(const std::string& body);

/// Whether libcurl rejected the certificate or the key of the peer.
bool IsUntrusted(const std::string& reason);

/// A task resource (DSP2046, Task).
struct TaskReport {
  bool is_unreadable = false;  ///< The body is not a JSON object.
  std::string status = {};     ///< TaskStatus, e.g. "Critical"; may be empty.
  std::string messages = {};   ///< Messages, in one text.
  std::string critical = {};   ///< Those with the severity Critical.
};
TaskReport ReadTask(const std::string& body);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_BMC_TEXT_H_
