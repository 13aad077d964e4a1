// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/address.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace quorvane::tool {

std::string NormalizedAddress(std::string address) {
  std::transform(address.begin(), address.end(), address.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  constexpr std::string_view kDefaultPort = ":443";
  if (address.size() > kDefaultPort.size() &&
      address.compare(address.size() - kDefaultPort.size(), std::string::npos,
                      kDefaultPort) == 0) {
    address.resize(address.size() - kDefaultPort.size());
  }
  return address;
}

}  // namespace quorvane::tool
