// SPDX-License-Identifier: Apache-2.0
#include "logging/secret_names.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

#include "support/text.h"

namespace quorvane {
namespace {

// Unambiguous words, also within other letters, as in "downloadtoken".
constexpr auto kLongWords = std::to_array<std::string_view>(
    {"accesskey", "apikey", "authkey", "authorization", "cookie", "credential",
     "encryptionkey", "passcode", "passphrase", "passwd", "password",
     "privatekey", "pwd", "secret", "secretkey", "sharedkey", "token"});

// Words that are also part of harmless words: "design", "monkey", "compass".
constexpr auto kShortWords = std::to_array<std::string_view>(
    {"auth", "bearer", "cred", "hmac", "jsessionid", "jwt", "key", "oauth",
     "otp", "pass", "pin", "psw", "pw", "sas", "sessionid",
     "sharedaccesssignature", "sid", "sig", "signature"});

// Names of positions in a paged collection.
constexpr auto kPaging =
    std::to_array<std::string_view>({"deltatoken", "skiptoken"});

// "X-Auth-Token" becomes "xauthtoken".
std::string LowercaseLetters(std::string_view name) {
  std::string letters;
  for (const char c : name) {
    if (IsAsciiLetter(c)) letters += AsciiLower(c);
  }
  return letters;
}

bool IsPaging(std::string_view letters) {
  return std::find(kPaging.begin(), kPaging.end(), letters) != kPaging.end();
}

// Whether a word may start or end at `at`: "access|Key", "SAS|Token",
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

// Whether `word`, or its plural, is a whole word at `at`.
bool HasWordAt(std::string_view name, std::string_view lowercase,
               std::size_t at, std::string_view word) {
  if (lowercase.substr(at, word.size()) != word) return false;
  const std::size_t end = at + word.size();
  return IsWordBoundary(name, end) ||
         (lowercase[end] == 's' && IsWordBoundary(name, end + 1));
}

bool HasShortWord(std::string_view name) {
  const std::string lowercase = AsciiLower(name);
  for (std::size_t at = 0; at < name.size(); ++at) {
    if (IsWordBoundary(name, at) &&
        std::any_of(kShortWords.begin(), kShortWords.end(), [&](auto word) {
          return HasWordAt(name, lowercase, at, word);
        })) {
      return true;
    }
  }
  return false;
}

bool HasLongWord(std::string_view lowercase) {
  return std::any_of(kLongWords.begin(), kLongWords.end(), [&](auto word) {
    return lowercase.find(word) != std::string_view::npos;
  });
}

}  // namespace

bool IsSecretParameter(std::string_view name) {
  const std::string letters = LowercaseLetters(name);
  return !IsPaging(letters) && (HasLongWord(letters) || HasShortWord(name));
}

bool IsSecretMember(std::string_view name) {
  std::string letters = LowercaseLetters(name);
  if (IsPaging(letters)) return false;
  if (letters.ends_with('s')) letters.pop_back();
  return std::any_of(kLongWords.begin(), kLongWords.end(),
                     [&](auto word) { return letters.ends_with(word); });
}

bool MentionsSecret(std::string_view text) {
  const std::string lowercase = AsciiLower(text);
  return HasLongWord(lowercase) || lowercase.find("pass") != std::string::npos;
}

}  // namespace quorvane
