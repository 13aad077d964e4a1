// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/run_log.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

Descriptor OpenPrivateLog(std::string& path) {
  constexpr std::string_view kSuffix = ".log";
  path = TemporaryDirectory() + "/quorvane-XXXXXX";
  path += kSuffix;
  return Descriptor(
      mkostemps(path.data(), static_cast<int>(kSuffix.size()), O_CLOEXEC));
}

Descriptor OpenLog(std::string& path) {
  return path.empty() ? OpenPrivateLog(path) : OpenForAppending(path);
}

}  // namespace

RunLog::RunLog(std::string path, LogLevel level)
    : path_(std::move(path)), level_(level), file_(OpenLog(path_)) {
  if (file_.IsOpen()) {
    RequireNoOtherRun();
    EndEarlierRun();
    return;
  }
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot write the log {}: {}. Use --log with a file "
                  "in an existing directory of your own.",
                  path_, std::generic_category().message(errno)));
}

void RunLog::RequireNoOtherRun() const {
  struct stat found {};
  const bool is_shared =  // such as /dev/null
      fstat(file_.get(), &found) == 0 && !S_ISREG(found.st_mode);
  if (is_shared || flock(file_.get(), LOCK_EX | LOCK_NB) == 0 ||
      errno != EWOULDBLOCK) {
    return;
  }
  throw ToolError(ExitCode::kUsage,
                  fmt::format("Cannot write the log {}: another run writes to "
                              "it. Use a log of its own for each run.",
                              path_));
}

// The last line of an earlier run may be incomplete.
void RunLog::EndEarlierRun() {
  struct stat found {};
  if (fstat(file_.get(), &found) == 0 && found.st_size > 0) Write("\n");
}

void RunLog::Keep(const Record& record, bool is_essential) {
  if (record.component == kProgressComponent) return;
  if (record.level < level_ && record.component != kToolComponent &&
      !is_essential) {
    return;
  }
  // Without these seconds, a clock that is set would falsify all durations.
  const double error =
      SecondsOf(record.stamp) - clock_begin_ - (MonotonicSeconds() - begin_);
  if (std::abs(error - clock_error_) > 1) {
    clock_error_ = error;
    NoteElapsed();
  }
  Write(LoggedForm(record));
}

void RunLog::NoteElapsed() {
  Note(fmt::format("Elapsed: {:.3f} s", MonotonicSeconds() - begin_));
}

void RunLog::Note(std::string_view text) {
  Write(LoggedForm({.stamp = StampNow(),
                    .component = kToolComponent,
                    .message = Printable(text)}));
}

void RunLog::Write(std::string_view bytes) {
  if (is_full_ || WriteAll(file_.get(), bytes)) return;
  is_full_ = true;
  PrintMessage(
      fmt::format("Cannot write the log {} any more: {}. The run continues "
                  "without it.",
                  path_, std::generic_category().message(errno)));
}

}  // namespace quorvane::tool
