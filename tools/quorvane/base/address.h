// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_ADDRESS_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_ADDRESS_H_

#include <string>

namespace quorvane::tool {

/// `address` in lower case and without the default port of HTTPS, so that two
/// spellings of one address are equal.
std::string NormalizedAddress(std::string address);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_ADDRESS_H_
