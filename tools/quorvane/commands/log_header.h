// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_LOG_HEADER_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_LOG_HEADER_H_

#include <string>
#include <vector>

#include "tools/quorvane/commands/bmc_options.h"

namespace quorvane::tool {

/// The first messages of a log: what runs, when, for which BMC and user, with
/// which rules and which certificate check.
/// @param title  E.g. "update of 192.0.2.7 with fw.bin".
/// @param image  File or URI with its size and hash; may be empty.
/// @param trust  What `ResolveTrust` returned.
std::vector<std::string> LogHeader(const BmcOptions& bmc,
                                   const std::string& title,
                                   const std::string& image,
                                   const Trust& trust);

/// The same for a run that goes on in its log.
std::vector<std::string> ContinuedHeader(const BmcOptions& bmc,
                                         const Trust& trust);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_LOG_HEADER_H_
