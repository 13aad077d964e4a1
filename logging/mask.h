// SPDX-License-Identifier: Apache-2.0
// The two passes of MaskIP. `Text` is std::string_view, or in a test a view
// that counts the characters that are read.
#ifndef QUORVANE_LOGGING_MASK_H_
#define QUORVANE_LOGGING_MASK_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "support/text.h"

namespace quorvane::mask {

inline constexpr auto kNone = std::string_view::npos;

/// Reports on standard error a text that looks like an address but is not one.
/// @{
void ReportSkippedIpv4(std::size_t position);
void ReportSkippedIpv6(std::size_t position);
/// @}

// Whether the text is a number up to 255. Stops at the first character that
// decides it.
template <typename Text>
bool IsOctet(Text text) {
  int value = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!IsAsciiDigit(c)) return false;
    value = value * 10 + (c - '0');
    if (value > 255) return false;
  }
  return text.size() > 0;
}

struct Ipv4 {
  std::size_t start, end;
};

template <typename Text>
std::optional<Ipv4> Ipv4Around(Text text, std::size_t first_dot,
                               std::size_t second_dot, std::size_t third_dot) {
  std::size_t start = first_dot;
  while (start > 0 && first_dot - start <= 3 && IsAsciiDigit(text[start - 1])) {
    --start;
  }
  if (first_dot - start > 3) return std::nullopt;
  std::size_t end = third_dot + 1;
  while (end < text.size() && IsAsciiDigit(text[end])) ++end;
  const auto between = [text](std::size_t dot, std::size_t next) {
    return text.substr(dot + 1, next - dot - 1);
  };
  if (!IsOctet(text.substr(start, first_dot - start)) ||
      !IsOctet(between(first_dot, second_dot)) ||
      !IsOctet(between(second_dot, third_dot)) ||
      !IsOctet(between(third_dot, end))) {
    return std::nullopt;
  }
  return Ipv4{start, end};
}

template <typename Text>
void MaskIpv4(Text text, std::string& masked) {
  std::size_t scan = 0;
  while (true) {
    const std::size_t first = text.find('.', scan);
    if (first == kNone) return;
    const std::size_t second = text.find('.', first + 1);
    if (second == kNone) return;
    const std::size_t third = text.find('.', second + 1);
    if (third == kNone) return;
    if (const auto found = Ipv4Around(text, first, second, third)) {
      masked.replace(found->start, first - found->start, first - found->start,
                     'X');
      masked.replace(first + 1, second - first - 1, second - first - 1, 'X');
      scan = found->end;
    } else {
      ReportSkippedIpv4(scan);
      scan = first + 1;
    }
  }
}

// Reads the original text, because the IPv4 pass may have written an 'X' into
// the end of an IPv4-mapped address.
template <typename Text>
class Ipv6Pass {
 public:
  Ipv6Pass(Text text, std::string& masked) : text_(text), masked_(masked) {}

  void Run() {
    std::size_t scan = 0;
    while (true) {
      const std::size_t colon = text_.find(':', scan);
      if (colon == kNone) return;
      const std::optional<Address> found = AddressAround(scan, colon);
      if (found && found->is_bracketed) {
        scan = Mask(*found);
        continue;
      }
      if (!TwoMoreColons(colon)) return;
      if (found && found->colons >= 3) {
        scan = Mask(*found);
      } else {
        ReportSkippedIpv6(scan);
        scan = colon + 1;
      }
    }
  }

 private:
  struct Address {
    std::size_t start, end, colons;
    bool is_bracketed;  // the host of a URI (RFC 3986, section 3.2.2)
  };

  [[nodiscard]] bool TwoMoreColons(std::size_t colon) const {
    const std::size_t second = text_.find(':', colon + 1);
    return second != kNone && text_.find(':', second + 1) != kNone;
  }

  // The address whose first group ends at `colon` and starts at `scan` or
  // later. Nothing if one of its groups is invalid.
  std::optional<Address> AddressAround(std::size_t scan, std::size_t colon) {
    std::size_t start = colon;
    while (start > scan && IsAsciiAlphanumeric(text_[start - 1])) --start;
    if (start < invalid_until_ || !IsGroup(start, colon)) return std::nullopt;

    std::size_t end = colon;
    std::size_t colons = 0;
    while (end < text_.size() && text_[end] == ':') {
      ++colons;
      const std::size_t group = end + 1;
      end = group;
      while (end < text_.size() && end - group <= 4 &&
             IsAsciiAlphanumeric(text_[end])) {
        ++end;
      }
      if (!IsGroup(group, end)) {
        invalid_until_ = group + 1;
        return std::nullopt;
      }
    }
    end = EndOfDottedTail(end);
    const bool is_bracketed = colons >= 2 && start > 0 &&
                              text_[start - 1] == '[' && end < text_.size() &&
                              (text_[end] == ']' || text_[end] == '%');
    return Address{start, end, colons, is_bracketed};
  }

  [[nodiscard]] bool IsGroup(std::size_t start, std::size_t end) const {
    if (end - start > 4) return false;
    while (start < end && IsAsciiHexDigit(text_[start])) ++start;
    return start == end;
  }

  // An IPv4-mapped address ends with an IPv4 address (RFC 4291, section 2.2).
  [[nodiscard]] std::size_t EndOfDottedTail(std::size_t end) const {
    while (end + 1 < text_.size() && text_[end] == '.' &&
           IsAsciiDigit(text_[end + 1])) {
      ++end;
      while (end < text_.size() && IsAsciiDigit(text_[end])) ++end;
    }
    return end;
  }

  // Masks the address up to its fourth colon. Returns the end of the address.
  std::size_t Mask(const Address& address) {
    std::size_t colons = 0;
    for (std::size_t i = address.start; i < address.end && colons < 4; ++i) {
      if (text_[i] == ':') ++colons;
      masked_[i] = '_';
    }
    return address.end;
  }

  Text text_;
  std::string& masked_;
  // Every candidate that starts before this position contains the same invalid
  // group. It is not read again, so that the pass is linear.
  std::size_t invalid_until_ = 0;
};

/// Masks the addresses in `masked`, which is a copy of `text`.
template <typename Text>
void MaskAddresses(Text text, std::string& masked) {
  MaskIpv4(text, masked);
  Ipv6Pass<Text>(text, masked).Run();
}

}  // namespace quorvane::mask

#endif  // QUORVANE_LOGGING_MASK_H_
