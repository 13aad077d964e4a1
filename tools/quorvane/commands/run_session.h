// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_COMMANDS_RUN_SESSION_H_
#define QUORVANE_TOOLS_QUORVANE_COMMANDS_RUN_SESSION_H_

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/event_stream.h"
#include "tools/quorvane/run/run.h"
#include "tools/quorvane/run/run_log.h"
#include "tools/quorvane/run/verdict.h"
#include "tools/quorvane/view/progress.h"
#include "tools/quorvane/worker/bmc_lock.h"
#include "tools/quorvane/worker/library_process.h"

namespace quorvane::tool {

/// A run that can change a BMC: locks the BMC, makes the calls of the library,
/// sends their log records to the log file, to the facts of the run and to the
/// display, and ends with a verdict.
class RunSession : private CallListener {
 public:
  struct Settings {
    std::string title = {};  ///< E.g. "update of 192.0.2.7 with fw.bin".
    std::string image =
        {};  ///< File or URI with its size and hash; may be empty.
    std::string events = {};  ///< See `EventStream`.
    ProgressStyle style = ProgressStyle::kPlain;
    /// Continues the run in the log, instead of a new one.
    bool continues = false;
    int attempts = 1;  ///< How many the rules allow at each URI.
    Signals::OnHangup on_hangup = Signals::OnHangup::kContinue;
  };

  /// @throws ToolError if another process changes the BMC or writes the log.
  RunSession(const BmcOptions& bmc, const Settings& settings);

  /// What an exception of the library means for the run.
  enum class OnError { kEnd, kContinue };

  /// Makes a call. If the tool was interrupted, if the worker failed, or after
  /// an error that ends the run, the facts of the run contain that, and
  /// `MustStop` is true.
  /// @return What the library returned; nothing if it did not return.
  std::optional<WorkerResponse> Call(LibraryCall call,
                                     RebootBy reboot_by = RebootBy::kLibrary,
                                     OnError on_error = OnError::kEnd);

  /// Whether the run must make no more calls.
  [[nodiscard]] bool MustStop() const { return must_stop_; }

  /// Whether the BMC responds at all.
  /// @throws ToolError if the worker cannot start.
  bool Probe();

  /// A call that only reads. Whatever goes wrong does not end the run, unless
  /// the tool was interrupted.
  /// @return What the library returned; nothing if it did not return in time.
  std::optional<WorkerResponse> Read(LibraryCall call, double limit_seconds);

  /// Ends the run because the BMC refused the login (HTTP 401) for a resource
  /// that `Read` returned: more attempts could lock the account.
  void StopAtRefusedLogin();

  /// Waits, while the display goes on.
  /// @return False if the tool was interrupted.
  bool Wait(double seconds);

  /// Writes a record to the log, adds its event to the run and displays it.
  void Report(const std::string& text);

  /// Requests the reboot of the system, unless that could do harm, or the rules
  /// have none; then the run states the reason.
  /// @param objection  A further reason against it; may be empty.
  /// @return What the library returned.
  std::optional<UpdateResponse> Reboot(const Config& rules,
                                       const InventoryRequest& account,
                                       const std::string& objection);

  /// Ends the run: logs and returns the verdict.
  Verdict Finish();

  /// Ends the run before it changed anything.
  Verdict Stop(const std::string& reason);

  [[nodiscard]] const Run& run() const { return builder_.run(); }
  /// The run as it is if nothing follows.
  [[nodiscard]] Run EndedRun() const { return builder_.Ended(); }
  [[nodiscard]] const RunLog& log() const { return log_; }
  /// Whether the log and the events were written completely.
  [[nodiscard]] bool IsRecorded() const {
    return log_.IsComplete() && events_.IsComplete();
  }

 private:
  void OnRecord(const Record& record) override;
  void OnTick() override;
  /// Writes a record to the log and adds its event to the run.
  Event NoteEvent(const std::string& text);
  void AddEarlierEvents();
  void NoteInterruption();
  void LogVerdict(const Verdict& verdict);
  void AddEvent(const Event& event);

  const BmcOptions& bmc_;
  BmcLock lock_;
  RunLog log_;
  EventStream events_;
  Signals signals_;
  std::unique_ptr<Progress> progress_;
  RunBuilder builder_;
  bool must_stop_ = false;
};

/// The result of a call, of its type.
template <typename Result>
std::optional<Result> ResultIn(std::optional<WorkerResponse> response) {
  if (!response) return std::nullopt;
  return std::get<Result>(*std::move(response));
}

/// The exit code of a run; also reports a log or a result that is incomplete.
ExitCode ExitCodeOf(const Verdict& verdict, bool is_recorded);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_COMMANDS_RUN_SESSION_H_
