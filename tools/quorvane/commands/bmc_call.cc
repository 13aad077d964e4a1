// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/bmc_call.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/run/run_log.h"
#include "tools/quorvane/view/progress.h"
#include "tools/quorvane/worker/library_process.h"

namespace quorvane::tool {
namespace {

class TroubleCollector : public CallListener {
 public:
  TroubleCollector(RunLog& log, std::vector<Record>& troubles)
      : log_(log), troubles_(troubles) {}
  void OnRecord(const Record& record) override {
    log_.Keep(record);
    if (record.level >= LogLevel::WARNING) troubles_.push_back(record);
  }
  void OnTick() override {}

 private:
  RunLog& log_;
  std::vector<Record>& troubles_;
};

bool Says(const std::vector<Record>& troubles, std::string_view words) {
  return std::any_of(troubles.begin(), troubles.end(),
                     [words](const Record& record) {
                       return record.message.find(words) != std::string::npos;
                     });
}

}  // namespace

BmcCall::BmcCall(const BmcOptions& options, std::string name)
    : options_(options), name_(std::move(name)) {}

nlohmann::json BmcCall::Ask() {
  static_cast<void>(CheckRules(options_));
  const nlohmann::json request = {{"call", name_},
                                  {"bmc", options_.bmc},
                                  {"user", options_.user},
                                  {"password", ReadPassword(options_)}};
  RunLog log(options_.log, options_.log_level);
  log_path_ = log.path();
  log.Note("Run: " + name_ + " of " + options_.bmc);
  TroubleCollector collector(log, troubles_);
  const CallResult result = CallLibrary(request, options_.rules, collector);
  if (result.end == CallResult::End::kInterrupted) {
    throw ToolError(ExitCode::kInterrupted,
                    "Interrupted; nothing was changed on the BMC.");
  }
  if (result.end == CallResult::End::kDied) {
    throw ToolError(ExitCode::kFailed,
                    fmt::format("The library's process ended early ({}). The "
                                "log {} shows how far it came.",
                                result.how, log_path_));
  }
  if (const auto error = result.answer.find("error");
      error != result.answer.end()) {
    if (result.answer.contains("out_of_memory")) {
      throw ToolError(
          ExitCode::kFailed,
          fmt::format("Cannot read the {} of {}: {} Log: {}", name_,
                      options_.bmc, error->get<std::string>(), log_path_));
    }
    throw ToolError(
        ExitCode::kUnreachable,
        fmt::format("No answer from {}: {}. Check the address, the network and "
                    "that the BMC is on. Log: {}",
                    options_.bmc, error->get<std::string>(), log_path_));
  }
  return result.answer.at("ok");
}

ExitCode BmcCall::Refused() const {
  if (Says(troubles_, "HTTP 401") || Says(troubles_, "HTTP 403")) {
    fmt::print(stderr,
               "quorvane: {} refused the login of {}. Check user, password and "
               "the account's rights.\nLog: {}\n",
               Printable(options_.bmc), Printable(options_.user),
               Printable(log_path_));
    return ExitCode::kUnreachable;
  }
  const std::string reason =
      troubles_.empty() ? "." : ": " + Excerpt(troubles_.back().message, 400);
  const std::string text =
      fmt::format("quorvane: The {} of {} could not be read{}", name_,
                  Printable(options_.bmc), reason);
  fmt::print(stderr, "{}\nLog: {}\n", Wrapped(text, TerminalColumns(), 2),
             Printable(log_path_));
  return ExitCode::kFailed;
}

}  // namespace quorvane::tool
