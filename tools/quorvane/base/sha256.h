// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_SHA256_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_SHA256_H_

#include <string>

namespace quorvane::tool {

/// The hash of a file (FIPS 180-4), as 64 hexadecimal digits; "unknown" if it
/// cannot be read.
std::string Sha256Of(const std::string& path);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_SHA256_H_
