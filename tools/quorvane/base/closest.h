// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_BASE_CLOSEST_H_
#define QUORVANE_TOOLS_QUORVANE_BASE_CLOSEST_H_

#include <string>
#include <vector>

namespace quorvane::tool {

/// The entry of `known` that `word` most likely misspells: at most two edits
/// away, regardless of case. Empty if none is that close.
std::string ClosestOf(const std::vector<std::string>& known,
                      const std::string& word);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_BASE_CLOSEST_H_
