// SPDX-License-Identifier: Apache-2.0
// Live progress display.
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tools/quorvane/run/events.h"
#include "tools/quorvane/run/run.h"

namespace quorvane::tool {

/// Displays a run while it goes on.
class Progress {
 public:
  virtual ~Progress() = default;
  /// `event` was added to `run`.
  virtual void OnEvent(const Event& event, const Run& run) = 0;
  /// Some time passed without an event.
  virtual void OnTick(const Run& run) = 0;
  /// Clears the display for other output.
  virtual void Finish() = 0;
};

enum class ProgressStyle {
  kLive,   ///< A block that is redrawn; warnings appear above it.
  kPlain,  ///< One line for each step.
  kQuiet,  ///< Warnings and errors only.
};

/// kLive on a terminal that can be redrawn, unless `quiet`, NO_COLOR or CI is
/// set.
ProgressStyle ChooseStyle(bool quiet);

/// @param attempts  How many the rules allow at each URI.
std::unique_ptr<Progress> MakeProgress(ProgressStyle style, int attempts);

/// The lines of the live display at `now` (as `Record::time`), each cut to
/// `columns`.
std::vector<std::string> LiveBlock(const Run& run, int attempts, double now,
                                   std::size_t columns);

/// The line for an event; empty if it is not displayed.
std::string PlainLine(const Event& event, const Run& run);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_
