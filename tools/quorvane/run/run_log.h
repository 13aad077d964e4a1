// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_RUN_LOG_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_RUN_LOG_H_

#include <string>
#include <string_view>

#include "quorvane/logging.h"
#include "tools/quorvane/base/descriptor.h"
#include "tools/quorvane/run/records.h"

namespace quorvane::tool {

/// The log file of one run: the library's records from a level upwards, and a
/// first and a last line of the tool's own. See records.h for its form.
class RunLog {
 public:
  /// @param path   Appended to, mode 0600 if it is new; empty: a new private
  ///               file among the temporary ones.
  /// @param level  The least that is kept.
  /// @throws ToolError when the file cannot be opened.
  RunLog(std::string path, LogLevel level);

  void Keep(const Record& record);
  /// A line of the tool's own, as the component "tool".
  void Note(std::string_view text);

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  void EndEarlierRun();
  void Write(std::string_view bytes);

  std::string path_;
  LogLevel level_;
  Descriptor file_;
  bool is_full_ = false;  // told once
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_RUN_LOG_H_
