// SPDX-License-Identifier: Apache-2.0
#include "logging/mask.h"

#include <algorithm>
#include <cstdio>

#include "quorvane/logging.h"

namespace quorvane {
namespace {

void ReportSkipped(const char* message, std::size_t position) {
  static_cast<void>(std::fprintf(stderr, "%s%zu\n", message, position));
}

}  // namespace

void mask::ReportSkippedIpv4(std::size_t position) {
  ReportSkipped("[MaskIP] Skipping invalid IPv4 address", position);
}

void mask::ReportSkippedIpv6(std::size_t position) {
  ReportSkipped("[MaskIP] Skipping invalid IPv6 adress", position);
}

std::string MaskIP(std::string_view text) {
  std::string masked(text);
  if (std::count(text.begin(), text.end(), '.') >= 3 ||
      std::count(text.begin(), text.end(), ':') >= 3) {
    mask::MaskAddresses(text, masked);
  }
  return masked;
}

}  // namespace quorvane
