// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/sha256.h"

#include <sha2.h>

#include <array>

namespace quorvane::tool {

std::string Sha256Of(const std::string& path) {
  std::array<char, SHA256_DIGEST_STRING_LENGTH> digits{};
  return SHA256File(path.c_str(), digits.data()) == nullptr
             ? std::string("unknown")
             : std::string(digits.data());
}

}  // namespace quorvane::tool
