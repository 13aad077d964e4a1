// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_LOGGING_REDACT_H_
#define QUORVANE_LOGGING_REDACT_H_

#include <string>
#include <string_view>

namespace quorvane {

/// What the log shows in place of a secret.
inline constexpr std::string_view kRedacted = "<REDACTED>";

/// A URI as the log may show it, with each of these redacted:
/// - What may be a password (RFC 3986, section 3.2.1): all between the first
///   ':' behind a known scheme and the last '@'. A scheme is optional. This
///   hides a password that its author forgot to percent-encode, and at times
///   part of a path. A user name without a password stays.
/// - The value of each query parameter whose name announces a secret
///   (IsSecretParameter), up to the next '&'.
/// Blanks, quotes, '<' and '(' may precede the URI.
std::string RedactUri(const std::string& uri);

/// `RedactUri`, with the leading part of every address masked as well.
std::string UriForLog(const std::string& uri);

/// A BMC's answer as the log may show it. A task shows the request that created
/// it, and with it the account of the share (DSP2046, Task, Payload). Redacted
/// are, also in JSON that is quoted within a JSON string:
/// - the string value of each member whose name announces a secret
///   (IsSecretMember), however the name is escaped;
/// - the rest of a string that begins like such a header: "X-Auth-Token: ...";
/// - secrets within each word that may be a URI (RedactUri).
std::string RedactAnswer(const std::string& body);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_REDACT_H_
