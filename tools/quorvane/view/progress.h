// SPDX-License-Identifier: Apache-2.0
// Live progress display.
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_

#include <cstddef>
#include <memory>
#include <optional>
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
  kQuiet,  ///< Nothing.
};

/// kLive on a terminal that can be redrawn, unless `quiet`, `plain` or the
/// environment variable CI is set.
ProgressStyle ChooseStyle(bool quiet, bool plain);

/// @param attempts  How many the rules allow at each URI.
std::unique_ptr<Progress> MakeProgress(ProgressStyle style, int attempts);

/// The lines of the live display at `now` (as `Record::time`), each cut to
/// `columns`.
std::vector<std::string> LiveBlock(const Run& run, int attempts, double now,
                                   std::size_t columns);

/// A line of the display.
struct StepLine {
  std::string clock = {};
  bool is_warning = false;
  std::string step = {};
};
/// "13:07:09 ! Upload: HTTP 503"
std::string TextOf(const StepLine& line);

/// Turns the events of a run into lines.
///
/// The library logs a failed request up to three times: the error of the
/// transfer, the status, and a warning, which also announces a retry after the
/// last attempt. So the line of a failure waits for the next one, and only one
/// of them is displayed. The wait before a retry has a line of its own.
class StepLines {
 public:
  /// The lines to display after `event`, which was added to `run`.
  std::vector<StepLine> Add(const Event& event, const Run& run);
  /// The line that still waits, if there is one.
  std::vector<StepLine> Flush();

 private:
  struct Failure {
    StepLine line;
    std::string reason;  // A warning about the same failure contains it.
    bool has_response = false;
  };
  std::optional<Failure> waiting_ = {};
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_PROGRESS_H_
