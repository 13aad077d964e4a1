// SPDX-License-Identifier: Apache-2.0
// What a person sees while an update runs.
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tools/quorvane/run/events.h"
#include "tools/quorvane/run/run.h"

namespace quorvane::tool {

/// Shows a run as it goes; told of each event after it became part of the run.
class Progress {
 public:
  virtual ~Progress() = default;
  virtual void OnEvent(const Event& event, const Run& run) = 0;
  /// Time passed without an event.
  virtual void OnTick(const Run& run) = 0;
  /// Leaves the screen to what is printed next.
  virtual void Finish() = 0;
};

enum class ProgressStyle {
  kLive,   ///< One block that is redrawn, warnings above it.
  kPlain,  ///< A line for each step.
  kQuiet,  ///< Warnings and errors only.
};

/// kLive on a terminal that can be drawn on, unless `quiet`, NO_COLOR or CI say
/// otherwise.
ProgressStyle ChooseStyle(bool quiet);

/// @param tries  What the rules allow each URI.
std::unique_ptr<Progress> MakeProgress(ProgressStyle style, int tries);

/// The live block at `now` (as `Record::time`), a text per line, each cut to
/// `columns`.
std::vector<std::string> LiveBlock(const Run& run, int tries, double now,
                                   std::size_t columns);

/// The line for a step; empty when the event is none.
std::string PlainLine(const Event& event, const Run& run);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_
