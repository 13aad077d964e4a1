// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "logging/redact.h"
#include "logging/secret_names.h"
#include "support/text.h"

namespace quorvane {
namespace {

constexpr auto kNotFound = std::string_view::npos;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Position of the first matching character at or after `at`, or the end.
// find_first_of is too slow for whole responses.
template <typename Predicate>
std::size_t FindIf(std::string_view text, std::size_t at, Predicate matches) {
  while (at < text.size() && !matches(text[at])) ++at;
  return at;
}

// A JSON quote with the backslashes before it: JSON that is quoted in a JSON
// string has them. Some writers escape the quote as "\u0022" there.
struct Quote {
  std::size_t start = kNotFound;
  std::size_t backslashes = 0;
  std::string_view mark;  // `"` or `u0022`; empty if there is no quote

  [[nodiscard]] std::size_t MarkStart() const { return start + backslashes; }
  [[nodiscard]] std::size_t End() const { return MarkStart() + mark.size(); }
  [[nodiscard]] bool Opens(const Quote& like) const {
    return !mark.empty() && mark == like.mark &&
           backslashes == like.backslashes;
  }
  // Whether it ends the string that `opening` starts. It has as many
  // backslashes as the opening quote; any others belong to escaped backslashes.
  [[nodiscard]] bool Closes(const Quote& opening) const {
    const std::size_t own = opening.backslashes;
    return mark == opening.mark && backslashes % (2 * (own + 1)) == own;
  }
};

Quote QuoteAt(std::string_view text, std::size_t at) {
  const std::size_t end =
      std::min(text.find_first_not_of('\\', at), text.size());
  Quote quote{.start = at, .backslashes = end - at, .mark = {}};
  for (const std::string_view mark : {"\"", "u0022"}) {
    const bool is_escape = mark.size() > 1;
    if (text.substr(end, mark.size()) != mark) continue;
    if (!is_escape || quote.backslashes > 0) quote.mark = mark;
  }
  return quote;
}

// The first quote at or after `at`. At the end of the text, its mark is empty.
Quote NextQuote(std::string_view text, std::size_t at) {
  const auto is_start = [](char c) { return c == '"' || c == '\\'; };
  while ((at = FindIf(text, at, is_start)) < text.size()) {
    const Quote quote = QuoteAt(text, at);
    if (!quote.mark.empty()) return quote;
    at = quote.End();
  }
  return {.start = text.size(), .backslashes = 0, .mark = {}};
}

// Start of the value of a member, whose name ends at `at`: after the colon and
// white space, which is escaped in quoted JSON.
std::size_t ValueStart(std::string_view text, std::size_t at) {
  while ((at = text.find_first_not_of(": \t\r\n", at)) != kNotFound) {
    const std::size_t escaped = text.find_first_not_of('\\', at);
    if (escaped == at || escaped == kNotFound ||
        std::string_view("trn").find(text[escaped]) == kNotFound) {
      return at;
    }
    at = escaped + 1;
  }
  return text.size();
}

// Start of the value in a text such as "X-Auth-Token: 1"; kNotFound if the text
// is not a secret header.
std::size_t SecretHeaderValue(std::string_view text) {
  const auto ends_name = [](char c) {
    return !IsAsciiAlphanumeric(c) && c != '-' && c != '_';
  };
  const std::size_t colon = FindIf(text, 0, ends_name);
  if (text.substr(colon, 1) != ":") return kNotFound;
  return IsSecretMember(text.substr(0, colon)) ? colon + 1 : kNotFound;
}

// Scans from quote to quote. Checks each text between two quotes for the name
// of a secret, independent of the text before it: a response may be incomplete,
// or not JSON.
class ResponseRedaction {
 public:
  explicit ResponseRedaction(std::string_view body) : body_(body) {}

  std::string Run() {
    Quote before;
    while (done_ < body_.size()) {
      const Quote after = NextQuote(body_, done_);
      const std::string_view text = body_.substr(done_, after.start - done_);
      const std::size_t header = SecretHeaderValue(text);
      if (header != kNotFound && !before.mark.empty()) {
        Redact(done_ + header, before);
      } else {
        CopyRedacted(text);
        before = after;
        CopyTo(after.End());
        RedactValue(text, after);
      }
    }
    return redacted_;
  }

 private:
  void CopyTo(std::size_t end) {
    redacted_.append(body_.substr(done_, end - done_));
    done_ = end;
  }

  // Redacts the value of the member `name`, whose closing quote is `name_end`,
  // if the member is secret and the value is a string.
  void RedactValue(std::string_view name, const Quote& name_end) {
    const Quote opening = QuoteAt(body_, ValueStart(body_, name_end.End()));
    if (opening.Opens(name_end) && IsSecretMember(DecodeCharacters(name))) {
      Redact(opening.End(), opening);
    }
  }

  // Redacts from `start` to the end of the string that `opening` starts.
  void Redact(std::size_t start, const Quote& opening) {
    CopyTo(start);
    redacted_.append(kRedacted);
    Quote quote = NextQuote(body_, start);
    while (!quote.mark.empty() && !quote.Closes(opening)) {
      quote = NextQuote(body_, quote.End());
    }
    // The secret itself may end with backslashes.
    done_ = quote.mark.empty() ? body_.size()
                               : quote.MarkStart() - opening.backslashes;
  }

  // Copies `text`, and redacts each word in it, which may be a URI.
  void CopyRedacted(std::string_view text) {
    const auto may_be_secret = [](char c) {
      return c == '@' || c == '=' || c == '%' || c == '\\';
    };
    const std::size_t end = done_ + text.size();
    if (FindIf(text, 0, may_be_secret) == text.size()) return CopyTo(end);
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t word = FindIf(text, at, std::not_fn(IsBlank));
      redacted_.append(text.substr(at, word - at));
      at = FindIf(text, word, IsBlank);
      redacted_.append(RedactUri(std::string(text.substr(word, at - word))));
    }
    done_ = end;
  }

  std::string_view body_;
  std::string redacted_;
  std::size_t done_ = 0;  // end of the processed part of the body
};

}  // namespace

std::string RedactResponse(const std::string& body) {
  return ResponseRedaction(body).Run();
}

}  // namespace quorvane
