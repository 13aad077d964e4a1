// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_LOGGING_REDACT_H_
#define QUORVANE_LOGGING_REDACT_H_

#include <string>
#include <string_view>

namespace quorvane {

/// The text that replaces a secret in the log.
inline constexpr std::string_view kRedacted = "<REDACTED>";

/// A URI for the log. Redacts:
/// - What may be a password (RFC 3986, section 3.2.1): everything between the
///   first ':' after a known scheme and the last '@'. The scheme is optional.
///   This also redacts a password that is not percent-encoded, and sometimes a
///   part of a path. A user name without a password is not redacted.
/// - The value of each secret query parameter (IsSecretParameter), up to the
///   next '&'.
/// White space, quotes, '<' and '(' may precede the URI.
std::string RedactUri(const std::string& uri);

/// `RedactUri`, with masked addresses (`MaskIP`).
std::string UriForLog(const std::string& uri);

/// The body of a response for the log. A task contains the request that created
/// it, and so the account of the share (DSP2046, Task, Payload). Redacts, also
/// in JSON that is quoted in a JSON string:
/// - the string value of each secret member (IsSecretMember), even if its name
///   contains escapes;
/// - the rest of a string that starts like a secret header:
///   "X-Auth-Token: ...";
/// - secrets in each word that may be a URI (RedactUri).
std::string RedactResponse(const std::string& body);

}  // namespace quorvane

#endif  // QUORVANE_LOGGING_REDACT_H_
