// SPDX-License-Identifier: Apache-2.0
// ASCII characters, independent of the locale, and escaped characters.
#ifndef QUORVANE_SUPPORT_TEXT_H_
#define QUORVANE_SUPPORT_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace quorvane {

constexpr bool IsAsciiUpper(char c) { return c >= 'A' && c <= 'Z'; }
constexpr bool IsAsciiLower(char c) { return c >= 'a' && c <= 'z'; }
constexpr bool IsAsciiLetter(char c) {
  return IsAsciiUpper(c) || IsAsciiLower(c);
}
constexpr bool IsAsciiDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsAsciiHexDigit(char c) {
  return IsAsciiDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr bool IsAsciiAlphanumeric(char c) {
  return IsAsciiLetter(c) || IsAsciiDigit(c);
}

/// Converts letters to lower case. Leaves all other bytes unchanged.
/// @{
constexpr char AsciiLower(char c) {
  return IsAsciiUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
inline std::string AsciiLower(std::string_view text) {
  std::string lowercase(text);
  for (char& c : lowercase) c = AsciiLower(c);
  return lowercase;
}
/// @}

/// A character, and the number of bytes that encode it.
struct Character {
  char value;
  std::size_t length;
};

/// The character at `at`. Decodes "%3A", and "\u003a" in JSON that is quoted in
/// JSON at any depth. Does not decode other JSON escapes: several backslashes
/// count as one character, which keeps a loop over a text linear.
Character CharacterAt(std::string_view text, std::size_t at);

/// All characters of `text`, decoded.
std::string DecodeCharacters(std::string_view text);

}  // namespace quorvane

#endif  // QUORVANE_SUPPORT_TEXT_H_
