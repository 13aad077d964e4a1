// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_REQUESTS_H_
#define QUORVANE_UPDATE_REQUESTS_H_

#include <functional>
#include <string>

#include "quorvane/http.h"
#include "update/update_run.h"

namespace quorvane {

/// POSTs the parameters of a Redfish action with the account of the rules, and
/// with the time limit `kActionTimeoutMs`.
/// @throws as `HttpClient::post_json`.
Response PostAction(const UpdateRun& run, const std::string& url,
                    const std::string& body);

/// The response to `send`, or one of status 0 if there is none: for phases
/// whose rules also decide about a missing response. The client has logged the
/// reason.
Response ResponseOrStatusZero(const std::function<Response()>& send);

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_REQUESTS_H_
