// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/base/closest.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "support/text.h"

namespace quorvane::tool {
namespace {

// The Levenshtein distance: how many characters must be inserted, deleted or
// replaced.
std::size_t EditDistance(const std::string& from, const std::string& to) {
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= to.size(); ++j) {
      const std::size_t replaced =
          diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
    }
  }
  return row.back();
}

}  // namespace

std::string ClosestOf(const std::vector<std::string>& known,
                      const std::string& word) {
  constexpr std::size_t kMaxEdits = 2;
  std::string closest;
  std::size_t fewest = kMaxEdits + 1;
  for (const std::string& candidate : known) {
    const std::size_t edits =
        EditDistance(AsciiLower(word), AsciiLower(candidate));
    // Every word is within two edits of a very short one.
    if (edits < fewest && edits < candidate.size() / 2) {
      fewest = edits;
      closest = candidate;
    }
  }
  return closest;
}

}  // namespace quorvane::tool
