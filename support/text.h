// SPDX-License-Identifier: Apache-2.0
// Letters of ASCII, independent of the locale, and escaped characters.
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

/// Lower case; all other bytes stay.
/// @{
constexpr char AsciiLower(char c) {
  return IsAsciiUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
inline std::string AsciiLower(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) c = AsciiLower(c);
  return lowered;
}
/// @}

/// A character of a text, and how many bytes it takes there.
struct Character {
  char value;
  std::size_t length;
};

/// The character at `at`, which may be "%3A" or, in JSON that is quoted within
/// JSON to any depth, "\u003a". Other escapes of JSON are not decoded: a row of
/// backslashes counts as one, which keeps a loop over a text linear.
Character CharacterAt(std::string_view text, std::size_t at);

/// All characters of `text`.
std::string Decoded(std::string_view text);

}  // namespace quorvane

#endif  // QUORVANE_SUPPORT_TEXT_H_
