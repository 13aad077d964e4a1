// SPDX-License-Identifier: Apache-2.0
// HTTP statuses that decide what the tool does (RFC 9110, section 15).
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_HTTP_STATUS_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_HTTP_STATUS_H_

namespace quorvane::tool {

constexpr long kHttpAccepted = 202;          // section 15.3.3
constexpr long kHttpUnauthorized = 401;      // section 15.5.2
constexpr long kHttpForbidden = 403;         // section 15.5.4
constexpr long kHttpNotFound = 404;          // section 15.5.5
constexpr long kHttpMethodNotAllowed = 405;  // section 15.5.6
constexpr long kHttpBadGateway = 502;        // section 15.6.3
constexpr long kHttpGatewayTimeout = 504;    // section 15.6.5

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_HTTP_STATUS_H_
