// SPDX-License-Identifier: Apache-2.0
// The BMC that the rules point to, and its URLs.
#ifndef QUORVANE_CONFIG_TARGET_H_
#define QUORVANE_CONFIG_TARGET_H_

#include <string>

#include "quorvane/config.h"

namespace quorvane {

/// Replaces the address and the account of the rules file by those of the
/// caller. They are sent as basic authentication (RFC 7617), whatever type the
/// file specifies.
void OverrideTarget(Config& config, const std::string& ip,
                    const std::string& username, const std::string& password);

/// "https://" and the address of the BMC, without a trailing slash. `ip` takes
/// precedence, and gets no brackets even if it is an IPv6 literal.
/// @throws std::runtime_error "Config has no target ip or ipv6"
std::string BuildBaseUrl(const Config& config);

/// The URL of a link from a BMC: an absolute link unchanged, any other link
/// appended to the base URL.
/// @throws as `BuildBaseUrl`.
std::string ResolveUrl(const Config& config, const std::string& link);

}  // namespace quorvane

#endif  // QUORVANE_CONFIG_TARGET_H_
