// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/text.h"

#include <fmt/core.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace quorvane::tool {
namespace {

struct Decoded {
  std::uint32_t character = 0;
  std::size_t length = 0;  // 0: no UTF-8
};

// One character of UTF-8 (RFC 3629), overlong forms and surrogates refused.
Decoded Decode(std::string_view text) {
  const auto byte = [text](std::size_t i) {
    return static_cast<unsigned char>(text[i]);
  };
  const std::uint32_t lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < length) return {};
  std::uint32_t character = lead & (0xffU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0U) != 0x80) return {};
    character = (character << 6U) | (byte(i) & 0x3fU);
  }
  const bool overlong = (length == 3 && character < 0x800) ||
                        (length == 4 && character < 0x10000);
  const bool surrogate = character >= 0xd800 && character <= 0xdfff;
  if (overlong || surrogate || character > 0x10ffff) return {};
  return {character, length};
}

bool TurnsDirection(std::uint32_t c) {
  return c == 0x061c || c == 0x200e || c == 0x200f ||
         (c >= 0x202a && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
}

// Also the line separators of Unicode and the invisible byte order mark.
bool MustBeEscaped(std::uint32_t c) {
  return c < 0x20 || (c >= 0x7f && c <= 0x9f) || TurnsDirection(c) ||
         c == 0x2028 || c == 0x2029 || c == 0xfeff;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const auto [character, length] = Decode(text);
    if (length == 0) {
      shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[0]));
      text.remove_prefix(1);
      continue;
    }
    if (!MustBeEscaped(character)) {
      shown += text.substr(0, length);
    } else if (character == '\n') {
      shown += "\\n";
    } else if (character < 0x100) {
      shown += fmt::format("\\x{:02x}", character);
    } else {
      shown += fmt::format("\\u{:04x}", character);
    }
    text.remove_prefix(length);
  }
  return shown;
}

std::string Excerpt(std::string_view text, std::size_t most) {
  // Four bytes show at most a character's worth more than is wanted.
  const bool cut_before = text.size() > 4 * most;
  std::string shown = Printable(text.substr(0, 4 * most));
  if (shown.size() <= most && !cut_before) return shown;
  std::size_t end = most < shown.size() ? most : shown.size();
  while (end > 0 && end < shown.size() &&
         (static_cast<unsigned char>(shown[end]) & 0xc0U) == 0x80) {
    --end;
  }
  return shown.substr(0, end) + "...";
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
  std::string wrapped;
  std::size_t used = 0;
  while (!text.empty()) {
    // A word with the blanks before it.
    const std::size_t word = std::min(text.find_first_not_of(' '), text.size());
    const std::size_t end = std::min(text.find(' ', word), text.size());
    const std::size_t wanted = Columns(text.substr(0, end));
    if (columns > 0 && used > indent && used + wanted >= columns) {
      wrapped += '\n' + std::string(indent, ' ');
      wrapped += text.substr(word, end - word);
      used = indent + Columns(text.substr(word, end - word));
    } else {
      wrapped += text.substr(0, end);
      used += wanted;
    }
    text.remove_prefix(end);
  }
  return wrapped;
}

std::optional<std::string> FileText(const std::string& path) {
  const auto close = [](FILE* file) { static_cast<void>(std::fclose(file)); };
  const std::unique_ptr<FILE, decltype(close)> file(
      std::fopen(path.c_str(), "rbe"), close);
  if (!file) return std::nullopt;
  std::string text;
  std::array<char, 65536> chunk{};
  while (const std::size_t count =
             std::fread(chunk.data(), 1, chunk.size(), file.get())) {
    text.append(chunk.data(), count);
  }
  if (std::ferror(file.get()) != 0) return std::nullopt;
  return text;
}

std::size_t Columns(std::string_view text) {
  std::size_t columns = 0;
  for (const char c : text) {
    if ((static_cast<unsigned char>(c) & 0xc0U) != 0x80) ++columns;
  }
  return columns;
}

}  // namespace quorvane::tool
