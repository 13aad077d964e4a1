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

constexpr auto kNone = std::string_view::npos;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Where the first such character stands from `at` on, or the end. For a search
// through whole answers find_first_of is slow.
template <typename Predicate>
std::size_t FindIf(std::string_view text, std::size_t at, Predicate matches) {
  while (at < text.size() && !matches(text[at])) ++at;
  return at;
}

// A quote of JSON with the backslashes before it, which JSON has that is quoted
// within a JSON string. Some writers escape it there as "\u0022".
struct Quote {
  std::size_t start = kNone;
  std::size_t backslashes = 0;
  std::string_view mark;  // `"` or `u0022`; empty if there is no quote

  [[nodiscard]] std::size_t MarkStart() const { return start + backslashes; }
  [[nodiscard]] std::size_t End() const { return MarkStart() + mark.size(); }
  [[nodiscard]] bool Opens(const Quote& like) const {
    return !mark.empty() && mark == like.mark &&
           backslashes == like.backslashes;
  }
  // Whether it ends a string that `opening` began: of the backslashes before
  // it, all but the opening's own number belong to escaped backslashes.
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

// The first quote from `at` on; its mark is empty at the end of the text.
Quote NextQuote(std::string_view text, std::size_t at) {
  const auto is_start = [](char c) { return c == '"' || c == '\\'; };
  while ((at = FindIf(text, at, is_start)) < text.size()) {
    const Quote quote = QuoteAt(text, at);
    if (!quote.mark.empty()) return quote;
    at = quote.End();
  }
  return {.start = text.size(), .backslashes = 0, .mark = {}};
}

// Behind the colon and the blanks after a member's name, which are escapes
// where JSON is quoted.
std::size_t ValueAfter(std::string_view text, std::size_t at) {
  while ((at = text.find_first_not_of(": \t\r\n", at)) != kNone) {
    const std::size_t escaped = text.find_first_not_of('\\', at);
    if (escaped == at || escaped == kNone ||
        std::string_view("trn").find(text[escaped]) == kNone) {
      return at;
    }
    at = escaped + 1;
  }
  return text.size();
}

// Where a header's value begins in a text such as "X-Auth-Token: 1"; kNone
// unless its name announces a secret.
std::size_t SecretHeaderValue(std::string_view text) {
  const auto ends_name = [](char c) {
    return !IsAsciiLetter(c) && !(c >= '0' && c <= '9') && c != '-' && c != '_';
  };
  const std::size_t colon = FindIf(text, 0, ends_name);
  if (text.substr(colon, 1) != ":") return kNone;
  return IsSecretMember(text.substr(0, colon)) ? colon + 1 : kNone;
}

// Goes from quote to quote. It asks of each text between two whether it is the
// name of a secret, whatever came before: an answer may be cut off or no JSON.
class AnswerRedaction {
 public:
  explicit AnswerRedaction(std::string_view body) : body_(body) {}

  std::string Run() {
    Quote before;
    while (done_ < body_.size()) {
      const Quote after = NextQuote(body_, done_);
      const std::string_view text = body_.substr(done_, after.start - done_);
      const std::size_t header = SecretHeaderValue(text);
      if (header != kNone && !before.mark.empty()) {
        Hide(done_ + header, before);
      } else {
        AppendWords(text);
        before = after;
        CopyTo(after.End());
        HideValue(text, after);
      }
    }
    return redacted_;
  }

 private:
  void CopyTo(std::size_t end) {
    redacted_.append(body_.substr(done_, end - done_));
    done_ = end;
  }

  // The value behind a name that ends with `name_end`, if it is a string.
  void HideValue(std::string_view name, const Quote& name_end) {
    const Quote opening = QuoteAt(body_, ValueAfter(body_, name_end.End()));
    if (opening.Opens(name_end) && IsSecretMember(Decoded(name))) {
      Hide(opening.End(), opening);
    }
  }

  // From `start` to the end of the string that `opening` began.
  void Hide(std::size_t start, const Quote& opening) {
    CopyTo(start);
    redacted_.append(kRedacted);
    Quote quote = NextQuote(body_, start);
    while (!quote.mark.empty() && !quote.Closes(opening)) {
      quote = NextQuote(body_, quote.End());
    }
    // The secret may end with backslashes of its own.
    done_ = quote.mark.empty() ? body_.size()
                               : quote.MarkStart() - opening.backslashes;
  }

  // Each word may be a URI.
  void AppendWords(std::string_view text) {
    const auto is_telling = [](char c) {
      return c == '@' || c == '=' || c == '%' || c == '\\';
    };
    const std::size_t end = done_ + text.size();
    if (FindIf(text, 0, is_telling) == text.size()) return CopyTo(end);
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
  std::size_t done_ = 0;  // so much of the body has been dealt with
};

}  // namespace

std::string RedactAnswer(const std::string& body) {
  return AnswerRedaction(body).Run();
}

}  // namespace quorvane
