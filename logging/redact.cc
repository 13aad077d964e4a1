// SPDX-License-Identifier: Apache-2.0
#include "logging/redact.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
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

// Where the authority begins; kNone in a bare path.
std::size_t AuthorityOf(const std::string& uri) {
  constexpr const char* kSchemeCharacters =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+.-";
  const std::size_t colon = uri.find_first_not_of(kSchemeCharacters);
  const bool has_scheme = colon != kNone && uri.compare(colon, 2, ":/") == 0;
  const std::size_t slashes = has_scheme ? colon + 1 : 0;
  const std::size_t authority = uri.find_first_not_of('/', slashes);
  return !has_scheme && authority == 1 ? kNone : authority;
}

std::string RedactUser(const std::string& uri) {
  const std::size_t authority = AuthorityOf(uri);
  if (authority == kNone) return uri;
  const std::size_t authority_end = uri.find_first_of("/?#", authority);
  std::size_t at = uri.rfind('@', authority_end);
  const std::size_t colon = uri.find(':', authority);
  if (at == kNone || at < authority) {
    // No user part by the book. One whose password holds a bare '/', '?' or
    // '#' still looks like one to the person who wrote it.
    at = uri.rfind('@');
    const bool bracketed = authority < uri.size() && uri[authority] == '[';
    if (at == kNone || at < authority || colon >= authority_end || bracketed ||
        IsPort(std::string_view{uri}.substr(colon + 1))) {
      return uri;
    }
  }
  if (colon == kNone || colon > at) return uri;
  return uri.substr(0, colon + 1) + "<REDACTED>" + uri.substr(at);
}

bool NamesSecret(std::string_view name) {
  constexpr auto kWords = std::to_array<const char*>(
      {"auth", "credential", "key", "passw", "pwd", "secret", "sig", "token"});
  const std::string copy(name);
  return std::any_of(kWords.begin(), kWords.end(), [&](const char* word) {
    return strcasestr(copy.c_str(), word) != nullptr;
  });
}

// Links that a share has signed carry the proof in their query.
std::string RedactQuery(std::string uri) {
  std::size_t at = uri.find_first_of("?#");
  while (at != kNone) {
    const std::size_t name = at + 1;
    at = uri.find_first_of("&;#", name);
    const std::size_t equals = uri.find('=', name);
    if (equals >= at ||
        !NamesSecret(std::string_view{uri}.substr(name, equals - name))) {
      continue;
    }
    const std::size_t end = std::min(uri.find_first_of("&#", name), uri.size());
    uri.replace(equals + 1, end - equals - 1, "<REDACTED>");
    at = uri.find_first_of("&#", equals);
  }
  return uri;
}

// The quote at `at` with the backslashes before it, which JSON has that is
// quoted within a JSON string; empty if there is none.
std::string_view QuoteAt(std::string_view text, std::size_t at) {
  const std::size_t quote = text.find_first_not_of('\\', at);
  if (quote == kNone || text[quote] != '"') return {};
  return text.substr(at, quote + 1 - at);
}

// Behind the colon and the blanks after a member's name, which are escapes
// where JSON is quoted; kNone at the end.
std::size_t ValueAfter(std::string_view text, std::size_t at) {
  while ((at = text.find_first_not_of(": \t\r\n", at)) != kNone) {
    const std::size_t escaped = text.find_first_not_of('\\', at);
    if (escaped == at || escaped == kNone ||
        std::string_view("trn").find(text[escaped]) == kNone) {
      break;
    }
    at = escaped + 1;
  }
  return at;
}

// Where a text ends that began after such a quote: at the first one like it. A
// longer row of backslashes belongs to the text.
std::size_t EndOfQuoted(std::string_view text, std::size_t start,
                        std::string_view quote) {
  for (std::size_t at = start; at < text.size(); ++at) {
    if (text[at] != '"' && text[at] != '\\') continue;
    const std::string_view found = QuoteAt(text, at);
    if (found == quote) return at;
    at = std::min(text.find_first_not_of('\\', at), text.size());
  }
  return text.size();
}

}  // namespace

std::string RedactUri(const std::string& uri) {
  return RedactQuery(RedactUser(uri));
}

std::string RedactAnswer(const std::string& body) {
  constexpr std::string_view kKey = "Password";
  std::string redacted;
  std::size_t done = 0;
  std::size_t at = body.find(kKey);
  for (; at != kNone; at = body.find(kKey, at)) {
    at += kKey.size();
    const std::string_view quote = QuoteAt(body, at);
    const std::size_t value = ValueAfter(body, at + quote.size());
    if (quote.empty() || value == kNone || QuoteAt(body, value) != quote) {
      continue;
    }
    const std::size_t start = value + quote.size();
    redacted.append(body, done, start - done).append("<REDACTED>");
    done = EndOfQuoted(body, start, quote);
    at = done;
  }
  return redacted.append(body, done);
}

std::string UriForLog(const std::string& uri) { return MaskIP(RedactUri(uri)); }

}  // namespace quorvane
