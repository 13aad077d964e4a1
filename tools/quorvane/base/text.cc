// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/text.h"

#include <fmt/core.h>
#include <utf8proc.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstddef>

namespace quorvane::tool {
namespace {

struct Decoded {
  utf8proc_int32_t character = 0;
  std::size_t length = 0;  // 0: not UTF-8
};

// The first character of UTF-8 (RFC 3629).
Decoded Decode(std::string_view text) {
  utf8proc_int32_t character = 0;
  const utf8proc_ssize_t length =
      utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                       static_cast<utf8proc_ssize_t>(text.size()), &character);
  if (length <= 0) return {};
  return {character, static_cast<std::size_t>(length)};
}

// Controls a terminal, changes the writing direction, or is invisible.
bool MustBeEscaped(utf8proc_int32_t c) {
  if (c == ' ') return false;
  switch (utf8proc_category(c)) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_CN:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
    case UTF8PROC_CATEGORY_ZS:
      return true;
    default:
      return utf8proc_get_property(c)->ignorable;
  }
}

struct Shown {
  std::string text;
  std::size_t length = 0;   // of the original, in bytes
  std::size_t columns = 0;  // on a terminal
};

Shown FirstShown(std::string_view text) {
  const auto [character, length] = Decode(text);
  const auto escape = [](std::size_t bytes, const std::string& shown) {
    return Shown{shown, bytes, shown.size()};
  };
  if (length == 0) {
    return escape(
        1, fmt::format("\\x{:02x}", static_cast<unsigned char>(text[0])));
  }
  if (!MustBeEscaped(character)) {
    return {std::string(text.substr(0, length)), length,
            static_cast<std::size_t>(utf8proc_charwidth(character))};
  }
  if (character == '\n') return escape(length, "\\n");
  if (character < 0x100) {
    return escape(length, fmt::format("\\x{:02x}", character));
  }
  return escape(length, character < 0x10000
                            ? fmt::format("\\u{:04x}", character)
                            : fmt::format("\\U{:08x}", character));
}

// The longest prefix of `text` that needs at most `columns`, but at least one
// character.
std::size_t BytesWithin(std::string_view text, std::size_t columns) {
  std::size_t bytes = 0;
  std::size_t used = 0;
  while (bytes < text.size()) {
    const Shown next = FirstShown(text.substr(bytes));
    used += next.columns;
    if (bytes > 0 && used > columns) break;
    bytes += next.length;
  }
  return bytes;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const Shown first = FirstShown(text);
    shown += first.text;
    text.remove_prefix(first.length);
  }
  return shown;
}

std::string Excerpt(std::string_view text, std::size_t columns) {
  // Characters of width 0 need a limit as well.
  std::size_t bytes_left = 4 * columns;
  std::string shown;
  std::size_t used = 0;
  while (!text.empty()) {
    const Shown first = FirstShown(text);
    used += first.columns;
    if (used > columns || first.length > bytes_left) return shown + "...";
    bytes_left -= first.length;
    shown += first.text;
    text.remove_prefix(first.length);
  }
  return shown;
}

std::string Elided(std::string_view text, std::size_t columns) {
  constexpr std::string_view kGap = "...";
  if (Columns(text) <= columns) return Printable(text);
  const std::size_t kept = std::max(columns, kGap.size()) - kGap.size();
  const std::size_t at_end = kept / 2;
  std::string_view end = text;
  for (std::size_t left = Columns(text); left > at_end;) {
    const Shown first = FirstShown(end);
    left -= first.columns;
    end.remove_prefix(first.length);
  }
  std::string shown;
  for (std::size_t used = 0;;) {
    const Shown first = FirstShown(text);
    used += first.columns;
    if (used > kept - at_end) break;
    shown += first.text;
    text.remove_prefix(first.length);
  }
  return shown.append(kGap) + Printable(end);
}

std::string EscapedJson(std::string_view json) {
  std::string escaped;
  escaped.reserve(json.size());
  while (!json.empty()) {
    const auto [character, length] = Decode(json);
    const bool is_ascii = length == 1 && character < 0x7f;
    if (is_ascii || (length > 0 && !MustBeEscaped(character))) {
      escaped += json.substr(0, length);
    } else if (length == 0) {
      escaped += "\\ufffd";
    } else if (character < 0x10000) {
      escaped += fmt::format("\\u{:04x}", character);
    } else {  // RFC 8259, section 7: a UTF-16 surrogate pair
      const auto above = static_cast<unsigned>(character) - 0x10000U;
      escaped += fmt::format("\\u{:04x}\\u{:04x}", 0xd800U + (above >> 10U),
                             0xdc00U + (above & 0x3ffU));
    }
    json.remove_prefix(length == 0 ? 1 : length);
  }
  return escaped;
}

std::string Duration(double seconds) {
  if (seconds < 10 && std::floor(seconds) != seconds) {
    return fmt::format("{:.1f} s", seconds);
  }
  constexpr double kMinute = 60;
  constexpr double kHour = 60 * kMinute;
  constexpr double kDay = 24 * kHour;
  const double whole = std::round(seconds);
  const auto two = [whole](double unit, const char* name, double smaller,
                           const char* smaller_name) {
    const double units = std::floor(whole / unit);
    const double rest = std::floor((whole - units * unit) / smaller);
    return rest == 0 ? fmt::format("{:.0f} {}", units, name)
                     : fmt::format("{:.0f} {} {:.0f} {}", units, name, rest,
                                   smaller_name);
  };
  if (whole < kMinute) return fmt::format("{:.0f} s", whole);
  if (whole < kHour) return two(kMinute, "min", 1, "s");
  if (whole < kDay) return two(kHour, "h", kMinute, "min");
  return two(kDay, "d", kHour, "h");
}

std::string PathOf(std::string_view uri) {
  const std::size_t scheme = uri.find("://");
  if (scheme == std::string_view::npos) return std::string(uri);
  const std::size_t path = uri.find('/', scheme + 3);
  return path == std::string_view::npos ? std::string("/")
                                        : std::string(uri.substr(path));
}

std::string Wrapped(std::string_view text, std::size_t columns,
                    std::size_t indent) {
  constexpr std::size_t kMinColumns = 20;  // fewer cannot show a word
  std::string wrapped;
  std::size_t used = 0;
  const auto begin_line = [&] {
    wrapped += '\n' + std::string(indent, ' ');
    used = indent;
  };
  while (!text.empty()) {
    // A word with the spaces before it.
    const std::size_t word = std::min(text.find_first_not_of(' '), text.size());
    const std::size_t end = std::min(text.find(' ', word), text.size());
    std::string_view piece = text.substr(0, end);
    text.remove_prefix(end);
    if (columns > 0 && used > indent && used + Columns(piece) >= columns) {
      begin_line();
      piece.remove_prefix(word);
    }
    while (columns >= kMinColumns && used + Columns(piece) >= columns) {
      const std::size_t left = columns > used + 1 ? columns - used - 1 : 1;
      const std::size_t fitting = BytesWithin(piece, left);
      if (fitting == piece.size()) break;
      wrapped += piece.substr(0, fitting);
      piece.remove_prefix(fitting);
      begin_line();
    }
    wrapped += piece;
    used += Columns(piece);
  }
  return wrapped;
}

std::string ShellQuoted(std::string_view text) {
  const auto is_plain = [](unsigned char c) {
    return std::isalnum(c) != 0 ||
           std::string_view("%+,-./:=@_").find(static_cast<char>(c)) !=
               std::string_view::npos;
  };
  if (!text.empty() && std::all_of(text.begin(), text.end(), is_plain)) {
    return std::string(text);
  }
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string(R"('\'')") : std::string(1, c);
  }
  return quoted + "'";
}

std::size_t Columns(std::string_view text) {
  std::size_t columns = 0;
  while (!text.empty()) {
    const Shown first = FirstShown(text);
    columns += first.columns;
    text.remove_prefix(first.length);
  }
  return columns;
}

}  // namespace quorvane::tool
