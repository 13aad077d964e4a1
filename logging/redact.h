// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_LOGGING_REDACT_H_
#define QUORVANE_LOGGING_REDACT_H_

#include <string>

namespace quorvane {

/// A URI as it may stand in a log line: a password in its user part (RFC 3986,
/// section 3.2.1) becomes "<REDACTED>". A password that someone forgot to
/// percent-encode is hidden up to the last '@'.
std::string RedactUri(const std::string& uri);

/// `RedactUri`, with the leading part of every address hidden as well.
std::string UriForLog(const std::string& uri);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_REDACT_H_
