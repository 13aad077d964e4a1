// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_EVENT_STREAM_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_EVENT_STREAM_H_

#include <string>

#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/run/events.h"

namespace quorvane::tool {

/// Writes the events of a run as JSON Lines while it goes on, for programs that
/// follow it.
class EventStream {
 public:
  /// @param path  A regular file, whose content is replaced; "-" for standard
  ///     output; empty: writes nothing.
  /// @throws ToolError if the file cannot be written.
  explicit EventStream(std::string path);

  /// Writes `event`, unless it is `EventKind::kOther`. Its time becomes RFC
  /// 3339 with the offset from UTC. An event without a phase of its own gets
  /// that of the event before.
  void Write(const Event& event);

  /// False if the disk was full, or the reader went away.
  [[nodiscard]] bool IsComplete() const { return !has_failed_; }

 private:
  std::string path_;
  Descriptor file_;
  Phase phase_ = Phase::kNone;
  bool has_failed_ = false;
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_EVENT_STREAM_H_
