// SPDX-License-Identifier: Apache-2.0
#include "logging/redact.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "logging/secret_names.h"
#include "quorvane/logging.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr auto kNone = std::string_view::npos;

// Start of the text that may be an authority (RFC 3986, section 3.2). Without a
// known scheme, that is the whole text: "user:password@host" has no scheme.
std::size_t AuthorityStart(std::string_view uri) {
  constexpr auto kSchemes = std::to_array<std::string_view>(
      {"cifs", "file", "ftp", "ftps", "http", "https", "nfs", "scp", "sftp",
       "smb", "tftp"});
  constexpr const char* kSlashes = "/\\";
  const std::size_t start =
      std::min(uri.find_first_not_of(" \t\r\n\"'<("), uri.size());
  const std::size_t colon = std::min(uri.find(':', start), uri.size());
  const std::size_t authority = uri.find_first_not_of(kSlashes, colon + 1);
  const std::string scheme = AsciiLower(uri.substr(start, colon - start));
  const bool is_known =
      std::find(kSchemes.begin(), kSchemes.end(), scheme) != kSchemes.end();
  return is_known && authority != kNone && authority > colon + 1 ? authority
                                                                 : 0;
}

// End of the IP address that starts at `at`; kNone if there is none.
std::size_t AddressEnd(std::string_view uri, std::size_t at) {
  if (uri.substr(at, 1) == "[") {
    const std::size_t end =
        uri.find_first_not_of("0123456789abcdefABCDEF:.", at + 1);
    return end != kNone && uri[end] == ']' ? end + 1 : kNone;
  }
  const std::string_view host =
      uri.substr(at, uri.find_first_not_of("0123456789.", at) - at);
  return std::count(host.begin(), host.end(), '.') == 3 ? at + host.size()
                                                        : kNone;
}

// Start of the text that may contain a user name and a password. An authority
// that is only an IP address and a port contains neither, so it is skipped.
std::size_t UserinfoStart(std::string_view uri, std::size_t authority) {
  std::size_t end = AddressEnd(uri, authority);
  if (end == kNone) return authority;
  if (uri.substr(end, 1) == ":") {
    end = std::min(uri.find_first_not_of("0123456789", end + 1), uri.size());
  }
  const bool is_complete =
      end == uri.size() || uri.find_first_of("/?#", end) == end;
  return is_complete ? end : authority;
}

std::string RedactPassword(const std::string& uri) {
  std::size_t password = kNone;
  std::size_t last_at = uri.rfind('@');
  const bool has_at = last_at != kNone;
  const std::size_t start = UserinfoStart(uri, AuthorityStart(uri));
  for (std::size_t i = start; i < uri.size();) {
    const Character character = CharacterAt(uri, i);
    const std::size_t end = i + character.length;
    if (character.value == ':' && password == kNone) password = end;
    // A percent-encoded '@' counts if the URI contains no other '@'.
    if (character.value == '@' && !has_at) last_at = i;
    i = end;
  }
  if (password == kNone || last_at == kNone || last_at < password) return uri;
  return uri.substr(0, password).append(kRedacted).append(uri, last_at);
}

// A signed link of a share has its signature in the query. Encoded separators
// count, because the query may contain another link.
std::string RedactQuery(const std::string& uri) {
  std::string redacted;
  std::size_t copied = 0;
  std::optional<std::string> name;
  for (std::size_t at = 0; at < uri.size();) {
    const Character character = CharacterAt(uri, at);
    at += character.length;
    if (std::string_view("?&;#").find(character.value) != kNone) {
      name.emplace();
    } else if (name && character.value == '=') {
      if (IsSecretParameter(*name)) {
        redacted.append(uri, copied, at - copied).append(kRedacted);
        copied = at = std::min(uri.find('&', at), uri.size());
      }
      name.reset();
    } else if (name) {
      *name += character.value;
    }
  }
  return redacted.append(uri, copied);
}

}  // namespace

std::string RedactUri(const std::string& uri) {
  return RedactQuery(RedactPassword(uri));
}

std::string UriForLog(const std::string& uri) { return MaskIP(RedactUri(uri)); }

}  // namespace quorvane
