// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "logging/redact.h"

namespace quorvane {
namespace {

constexpr auto kNone = std::string::npos;

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
    redacted.append(body, done, start - done).append(kRedacted);
    done = EndOfQuoted(body, start, quote);
    at = done;
  }
  return redacted.append(body, done);
}

}  // namespace quorvane
