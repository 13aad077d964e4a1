// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_LOGGING_REDACT_H_
#define QUORVANE_LOGGING_REDACT_H_

#include <string>

namespace quorvane {

/// A URI as it may stand in a log line: a password in its user part (RFC 3986,
/// section 3.2.1) becomes "<REDACTED>". A password that someone forgot to
/// percent-encode is hidden as well, unless it reads as a port or holds an '@'
/// before a '/'. As libcurl reads them, the scheme may be missing and the
/// slashes behind it may be one to three. So does the value of a query's
/// parameter whose name tells of a secret, such as "sig" or "access_token".
std::string RedactUri(const std::string& uri);

/// `RedactUri`, with the leading part of every address hidden as well.
std::string UriForLog(const std::string& uri);

/// A BMC's answer as it may stand in the log: the value of each "Password" in
/// it becomes "<REDACTED>", also in JSON that is quoted within a JSON string. A
/// task shows the request that made it, and with it the account of the share
/// (DSP2046, Task, Payload).
std::string RedactAnswer(const std::string& body);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_REDACT_H_
