// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/bmc_call.h"

#include <fmt/core.h>

#include <algorithm>
#include <string_view>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/run/run_log.h"
#include "tools/quorvane/worker/library_process.h"

namespace quorvane::tool {
namespace {

class ProblemCollector : public CallListener {
 public:
  ProblemCollector(RunLog& log, std::vector<Record>& problems)
      : log_(log), problems_(problems) {}
  void OnRecord(const Record& record) override {
    log_.Keep(record);
    if (record.level >= LogLevel::WARNING) problems_.push_back(record);
  }
  void OnTick() override {}

 private:
  RunLog& log_;
  std::vector<Record>& problems_;
};

bool Contains(const std::vector<Record>& records, std::string_view text) {
  return std::any_of(records.begin(), records.end(),
                     [text](const Record& record) {
                       return record.message.find(text) != std::string::npos;
                     });
}

}  // namespace

InventoryRequest BmcCall::PrepareRequest() const {
  static_cast<void>(LoadRules(options_));
  return {.ip = options_.bmc,
          .username = options_.user,
          .password = ReadPassword(options_)};
}

WorkerResponse BmcCall::MakeCall(LibraryCall call) {
  RunLog log(options_.log, options_.log_level);
  log_path_ = log.path();
  log.Note("Run: " + subject_ + " of " + options_.bmc);
  ProblemCollector collector(log, problems_);
  Signals signals(Signals::OnHangup::kStop);
  CallResult result =
      CallLibrary(std::move(call),
                  {.rules = options_.rules, .trust = ResolveTrust(options_)},
                  signals, collector);
  switch (result.end) {
    case CallResult::End::kInterrupted:
      throw ToolError(ExitCode::kInterrupted,
                      "Interrupted. Nothing was changed on the BMC.");
    case CallResult::End::kDied:
      throw ToolError(ExitCode::kFailed,
                      fmt::format("The worker process failed: {}. Report the "
                                  "fault with the log {}.",
                                  result.reason, log_path_));
    case CallResult::End::kResponded:
      break;
  }
  if (const auto* error = std::get_if<WorkerError>(&*result.response)) {
    if (error->is_out_of_memory) {
      throw ToolError(
          ExitCode::kFailed,
          fmt::format("Cannot read the {} of {}: {} Log: {}", subject_,
                      options_.bmc, error->message, log_path_));
    }
    throw ToolError(
        ExitCode::kUnreachable,
        fmt::format("No response from {}: {}. Check the address and the "
                    "network, and that the BMC is powered on. Log: {}",
                    options_.bmc, error->message, log_path_));
  }
  return *std::move(result.response);
}

ExitCode BmcCall::PrintFailure() const {
  if (Contains(problems_, "HTTP 401") || Contains(problems_, "HTTP 403")) {
    fmt::print(stderr,
               "quorvane: {} refused the login of {}. Check the user, the "
               "password and the privileges of the account.\nLog: {}\n",
               Printable(options_.bmc), Printable(options_.user),
               Printable(log_path_));
    return ExitCode::kUnreachable;
  }
  const std::string reason =
      problems_.empty() ? "." : ": " + Excerpt(problems_.back().message, 400);
  const std::string text =
      fmt::format("quorvane: Cannot read the {} of {}{}", subject_,
                  Printable(options_.bmc), reason);
  fmt::print(stderr, "{}\nLog: {}\n", Wrapped(text, TerminalColumns(), 2),
             Printable(log_path_));
  return ExitCode::kFailed;
}

}  // namespace quorvane::tool
