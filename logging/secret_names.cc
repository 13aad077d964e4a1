// SPDX-License-Identifier: Apache-2.0
#include "logging/secret_names.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

#include "support/text.h"

namespace quorvane {
namespace {

// Unmistakable, also where words run together as in "downloadtoken".
constexpr auto kLongWords = std::to_array<std::string_view>(
    {"accesskey", "apikey", "authkey", "authorization", "cookie", "credential",
     "encryptionkey", "passcode", "passphrase", "passwd", "password",
     "privatekey", "pwd", "secret", "secretkey", "sharedkey", "token"});

// Also found in harmless words: "design", "monkey", "author", "compass".
constexpr auto kShortWords = std::to_array<std::string_view>(
    {"auth", "bearer", "cred", "hmac", "jsessionid", "jwt", "key", "oauth",
     "otp", "pass", "pin", "psw", "pw", "sas", "sessionid",
     "sharedaccesssignature", "sid", "sig", "signature"});

// Positions in a paged collection.
constexpr auto kPaging =
    std::to_array<std::string_view>({"deltatoken", "skiptoken"});

// "X-Auth-Token" becomes "xauthtoken".
std::string LettersOf(std::string_view name) {
  std::string letters;
  for (const char c : name) {
    if (IsAsciiLetter(c)) letters += AsciiLower(c);
  }
  return letters;
}

bool IsPaging(std::string_view letters) {
  return std::find(kPaging.begin(), kPaging.end(), letters) != kPaging.end();
}

// Whether a word may begin or end at `at`: "access|Key", "SAS|Token",
// "API|key", "x|-|amz".
bool IsWordBoundary(std::string_view name, std::size_t at) {
  if (at == 0 || at >= name.size()) return true;
  const char before = name[at - 1];
  const char after = name[at];
  if (!IsAsciiLetter(before) || !IsAsciiLetter(after)) return true;
  if (IsAsciiUpper(before) != IsAsciiUpper(after)) return true;
  return IsAsciiUpper(after) && at + 1 < name.size() &&
         IsAsciiLower(name[at + 1]);
}

// Whether `word` stands at `at` as a whole word, or its plural does.
bool HasWordAt(std::string_view name, std::string_view lowered, std::size_t at,
               std::string_view word) {
  if (lowered.substr(at, word.size()) != word) return false;
  const std::size_t end = at + word.size();
  return IsWordBoundary(name, end) ||
         (lowered[end] == 's' && IsWordBoundary(name, end + 1));
}

bool HasShortWord(std::string_view name) {
  const std::string lowered = AsciiLower(name);
  for (std::size_t at = 0; at < name.size(); ++at) {
    if (IsWordBoundary(name, at) &&
        std::any_of(kShortWords.begin(), kShortWords.end(), [&](auto word) {
          return HasWordAt(name, lowered, at, word);
        })) {
      return true;
    }
  }
  return false;
}

bool HasLongWord(std::string_view lowered) {
  return std::any_of(kLongWords.begin(), kLongWords.end(), [&](auto word) {
    return lowered.find(word) != std::string_view::npos;
  });
}

}  // namespace

bool IsSecretParameter(std::string_view name) {
  const std::string letters = LettersOf(name);
  return !IsPaging(letters) && (HasLongWord(letters) || HasShortWord(name));
}

bool IsSecretMember(std::string_view name) {
  std::string letters = LettersOf(name);
  if (IsPaging(letters)) return false;
  if (letters.ends_with('s')) letters.pop_back();
  return std::any_of(kLongWords.begin(), kLongWords.end(),
                     [&](auto word) { return letters.ends_with(word); });
}

bool MentionsSecret(std::string_view text) {
  const std::string lowered = AsciiLower(text);
  return HasLongWord(lowered) || lowered.find("pass") != std::string::npos;
}

}  // namespace quorvane
