// SPDX-License-Identifier: Apache-2.0
// The library at work in a process of its own.
//
// An update blocks for up to an hour, in a library that has no callback and
// tells what it does in its log alone. So a child process makes the call and
// logs into a pipe, and this process reads the pipe: for the log file, the
// live view and the verdict. A process and not a thread, because it
//  - can be ended at once on Ctrl-C, wherever the library waits;
//  - leaves its log behind whatever becomes of it, a crash included;
//  - can load the library from another folder, which is how --rules works.
// A pipe and not a file, because the views need every line, whatever level the
// person wants in the file, and see it without asking the disk for news.
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_LIBRARY_PROCESS_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_LIBRARY_PROCESS_H_

#include <nlohmann/json.hpp>
#include <string>

#include "tools/quorvane/run/records.h"

namespace quorvane::tool {

/// Hears of a call while it runs.
class CallListener {
 public:
  virtual ~CallListener() = default;
  /// A record of the library's log, whole.
  virtual void OnRecord(const Record& record) = 0;
  /// Time passes without a record.
  virtual void OnTick() = 0;
};

// NOLINTNEXTLINE(bugprone-exception-escape): a JSON value's move never throws.
struct CallResult {
  enum class End {
    kAnswered,     ///< `answer` holds what the library returned or threw.
    kDied,         ///< The process ended without an answer.
    kInterrupted,  ///< SIGINT, SIGTERM or SIGHUP; the process was ended.
  };
  End end = End::kDied;
  nlohmann::json answer;  ///< See worker.h.
  std::string how = {};   ///< Why there is no answer, e.g. "signal 11".
};

/// Makes one call in a child process and listens until it ends.
/// @param request  See worker.h. Goes through a pipe, so that no password shows
///                 in a process list.
/// @param rules    Rules file to use; empty: the installed one.
/// @throws ToolError when the process cannot be started.
CallResult CallLibrary(const nlohmann::json& request, const std::string& rules,
                       CallListener& listener);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_LIBRARY_PROCESS_H_
