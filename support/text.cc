// SPDX-License-Identifier: Apache-2.0
#include "support/text.h"

#include <algorithm>
#include <optional>

namespace quorvane {
namespace {

std::optional<int> HexDigit(char c) {
  if (!IsAsciiHexDigit(c)) return std::nullopt;
  return IsAsciiDigit(c) ? c - '0' : AsciiLower(c) - 'a' + 10;
}

// The byte that two hexadecimal digits at `at` encode.
std::optional<char> HexByteAt(std::string_view text, std::size_t at) {
  if (at + 2 > text.size()) return std::nullopt;
  const auto high = HexDigit(text[at]);
  const auto low = HexDigit(text[at + 1]);
  if (!high || !low) return std::nullopt;
  return static_cast<char>(*high * 16 + *low);
}

}  // namespace

Character CharacterAt(std::string_view text, std::size_t at) {
  if (text[at] == '%') {
    if (const auto byte = HexByteAt(text, at + 1)) return {*byte, 3};
  }
  if (text[at] != '\\') return {text[at], 1};
  const std::size_t end =
      std::min(text.find_first_not_of('\\', at), text.size());
  if (text.substr(end, 3) == "u00") {
    if (const auto byte = HexByteAt(text, end + 3)) {
      return {*byte, end + 5 - at};
    }
  }
  return {'\\', end - at};
}

std::string DecodeCharacters(std::string_view text) {
  std::string decoded;
  for (std::size_t at = 0; at < text.size();) {
    const Character character = CharacterAt(text, at);
    decoded += character.value;
    at += character.length;
  }
  return decoded;
}

}  // namespace quorvane
