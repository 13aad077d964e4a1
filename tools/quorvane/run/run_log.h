// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_RUN_LOG_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_RUN_LOG_H_

#include <string>
#include <string_view>

#include "quorvane/logging.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/run/records.h"

namespace quorvane::tool {

/// The log file of a run: the library's records from a level up, and all
/// records of the tool. See records.h for the format.
class RunLog {
 public:
  /// @param path   Appended to, mode 0600 if it is new; empty: a new private
  ///               temporary file.
  /// @param level  The lowest level that is written.
  /// @throws ToolError if the file cannot be opened, or if another run writes
  /// to it.
  RunLog(std::string path, LogLevel level);

  /// @param is_essential  Write it whatever its level is.
  void Keep(const Record& record, bool is_essential = false);
  /// Writes a record of the component "tool".
  void Note(std::string_view text);

  /// Writes the seconds since the start.
  void NoteElapsed();

  [[nodiscard]] const std::string& path() const { return path_; }
  /// Whether everything was written so far.
  [[nodiscard]] bool IsComplete() const { return !is_full_; }

 private:
  void RequireNoOtherRun() const;
  void EndEarlierRun();
  void Write(std::string_view bytes);

  std::string path_;
  LogLevel level_;
  Descriptor file_;
  bool is_full_ = false;  // reported once
  double begin_ = MonotonicSeconds();
  double clock_begin_ = SecondsOf(StampNow());
  double clock_error_ =
      0;  // of the stamps, against the seconds since the start
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_RUN_LOG_H_
