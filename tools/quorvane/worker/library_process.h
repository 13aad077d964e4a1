// SPDX-License-Identifier: Apache-2.0
// Runs the library in a child process.
//
// An update blocks for up to an hour in a library that has no callback; only
// its log shows its progress. So a child process makes the call and sends its
// log records through a pipe to this process, which writes the log file,
// displays the progress and judges the outcome. A process and not a thread,
// because it
//  - can be ended at once on Ctrl-C, wherever the library waits;
//  - leaves a complete log even if it crashes;
//  - can load the library from another directory, which is how --rules works.
// A pipe and not a file, because the tool needs every record at once, whatever
// level the user wants in the log file.
#ifndef QUORVANE_TOOLS_QUORVANE_WORKER_LIBRARY_PROCESS_H_
#define QUORVANE_TOOLS_QUORVANE_WORKER_LIBRARY_PROCESS_H_

#include <optional>
#include <string>

#include "tools/quorvane/run/records.h"
#include "tools/quorvane/worker/protocol.h"
#include "tools/quorvane/worker/signals.h"

namespace quorvane::tool {

/// Receives what happens during a call.
class CallListener {
 public:
  virtual ~CallListener() = default;
  /// The library logged `record`.
  virtual void OnRecord(const Record& record) = 0;
  /// Some time passed without a record.
  virtual void OnTick() = 0;
};

struct CallResult {
  enum class End {
    kResponded,    ///< `response` is what the worker sent.
    kDied,         ///< The process ended without a response.
    kInterrupted,  ///< A signal; the process was ended.
    kTimedOut,     ///< The time limit was over; the process was ended.
  };
  End end = End::kDied;
  std::optional<WorkerResponse> response = {};
  std::string reason = {};  ///< Why there is no response, e.g. "signal 11".
};

/// Who requests the reboot after an update.
enum class RebootBy {
  kLibrary,  ///< The library, by the rules.
  kTool,     ///< The library gets rules that require no reboot.
};

struct CallOptions {
  std::string rules = {};  ///< Rules file to use; empty: the installed one.
  RebootBy reboot_by = RebootBy::kLibrary;
  Trust trust = {};
  /// Only for calls that read; 0: none.
  double limit_seconds = 0;
};

/// Makes one call in a child process; blocks until it ends.
/// @param listener  Called on this thread.
/// @throws ToolError when the process cannot be started.
CallResult CallLibrary(LibraryCall call, const CallOptions& options,
                       Signals& signals, CallListener& listener);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_WORKER_LIBRARY_PROCESS_H_
