// SPDX-License-Identifier: Apache-2.0
#include "simulator/text.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace quorvane::simulator {
namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

void AppendHex(std::string& text, unsigned char byte) {
  text += kHexDigits[byte >> 4U];
  text += kHexDigits[byte & 0xFU];
}

}  // namespace

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string Printable(std::string_view text) {
  std::string printable;
  for (const char c : text) {
    if (c >= ' ' && c <= '~') {
      printable += c;
    } else {
      printable += "\\x";
      AppendHex(printable, static_cast<unsigned char>(c));
    }
  }
  return printable;
}

std::string ShellWord(std::string_view text) {
  constexpr std::string_view kSafe =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.:/@";
  if (!text.empty() &&
      text.find_first_not_of(kSafe) == std::string_view::npos) {
    return std::string(text);
  }
  std::string escaped;
  for (const char c : text) {
    if (c == '\\' || c == '\'') escaped += '\\';
    escaped += c;
  }
  const std::string printable = Printable(escaped);
  // Every shell supports single quotes; $'...' is only for escapes.
  return (printable == text ? "'" : "$'") + printable + '\'';
}

std::string Sha256(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length,
                 EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error(
        "cannot compute SHA-256: OpenSSL does not provide it");
  }
  std::string text;
  for (unsigned int i = 0; i < length; ++i) AppendHex(text, digest.at(i));
  return text;
}

std::string Base64(std::string_view bytes) {
  // OpenSSL appends a NUL, which takes one more byte.
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()),
                      static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace quorvane::simulator
