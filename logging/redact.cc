// SPDX-License-Identifier: Apache-2.0
#include "logging/redact.h"

#include <cstddef>
#include <string_view>

#include "quorvane/logging.h"

namespace quorvane {
namespace {

constexpr auto kNone = std::string::npos;

// Digits up to the end of the authority: a port, so what stands before it is a
// host and no user.
bool IsPort(std::string_view after_colon) {
  const std::size_t end = after_colon.find_first_not_of("0123456789");
  return end == kNone || after_colon.find_first_of("/?#", end) == end;
}

}  // namespace

std::string RedactUri(const std::string& uri) {
  const std::size_t scheme_end = uri.find("://");
  if (scheme_end == kNone) return uri;
  const std::size_t authority = scheme_end + 3;
  const std::size_t authority_end = uri.find_first_of("/?#", authority);
  std::size_t at = uri.rfind('@', authority_end);
  const std::size_t colon = uri.find(':', authority);
  if (at == kNone || at < authority) {
    // No user part by the book. One whose password holds a bare '/', '?' or
    // '#' still looks like one to the person who wrote it.
    at = uri.rfind('@');
    const bool bracketed = authority < uri.size() && uri[authority] == '[';
    if (at == kNone || at < authority || colon >= authority_end || bracketed ||
        IsPort(std::string_view(uri).substr(colon + 1))) {
      return uri;
    }
  }
  if (colon == kNone || colon > at) return uri;
  return uri.substr(0, colon + 1) + "<REDACTED>" + uri.substr(at);
}

std::string UriForLog(const std::string& uri) { return MaskIP(RedactUri(uri)); }

}  // namespace quorvane
