// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/run_log.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
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
    EndEarlierRun();
    return;
  }
  throw ToolError(ExitCode::kUsage,
                  fmt::format("Cannot write the log {} ({}); name a file in a "
                              "folder that is there and yours with --log.",
                              path_, std::generic_category().message(errno)));
}

// The last line of an earlier run may have been cut short.
void RunLog::EndEarlierRun() {
  struct stat found {};
  if (fstat(file_.get(), &found) == 0 && found.st_size > 0) Write("\n");
}

void RunLog::Keep(const Record& record) {
  if (record.level >= level_) Write(LoggedForm(record));
}

void RunLog::Note(std::string_view text) {
  Write(LoggedForm({.stamp = StampNow(),
                    .component = kToolComponent,
                    .message = Printable(text)}));
}

void RunLog::Write(std::string_view bytes) {
  if (is_full_ || WriteAll(file_.get(), bytes)) return;
  is_full_ = true;
  fmt::print(stderr,
             "quorvane: The log {} cannot be written any more ({}); "
             "the run goes on without it.\n",
             Printable(path_), std::generic_category().message(errno));
}

}  // namespace quorvane::tool
