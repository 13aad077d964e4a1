// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/quorvane/bmc_options.h"
#include "tools/quorvane/commands.h"
#include "tools/quorvane/library_process.h"
#include "tools/quorvane/run_log.h"
#include "tools/quorvane/text.h"
#include "tools/quorvane/tool.h"

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

struct Options {
  BmcOptions bmc;
  std::string file;
  std::vector<std::string> targets;
  std::string result;
};

class LogKeeper : public CallListener {
 public:
  explicit LogKeeper(RunLog& log)
      : reader_([&log](const Record& record) {
          log.Keep(record);
          if (record.level >= LogLevel::INFO && record.component != "logger") {
            fmt::print("{}\n", Excerpt(record.message, 160));
          }
        }) {}
  void OnLog(std::string_view bytes) override { reader_.Feed(bytes); }
  void OnQuiet() override { reader_.EndOfBurst(); }

 private:
  RecordReader reader_;
};

ExitCode Run(const Options& options) {
  CheckRules(options.bmc);
  const Json request = {
      {"call", "update"},           {"bmc", options.bmc.bmc},
      {"user", options.bmc.user},   {"password", ReadPassword(options.bmc)},
      {"local_file", options.file}, {"targets", options.targets},
      {"result", options.result}};
  RunLog log(options.bmc.log, options.bmc.log_level);
  log.Note("update of " + options.bmc.bmc + " with " + options.file);
  LogKeeper keeper(log);
  const CallResult result = CallLibrary(request, options.bmc.rules, keeper);
  fmt::print("Log: {}\n", log.path());
  if (result.end == CallResult::End::kInterrupted) {
    return ExitCode::kInterrupted;
  }
  if (result.end == CallResult::End::kDied) return ExitCode::kUnknown;
  if (result.answer.contains("error")) {
    throw ToolError(ExitCode::kFailed, result.answer.at("error"));
  }
  const Json& record = result.answer.at("ok");
  fmt::print("{}\n", Printable(record.at("message").get<std::string>()));
  const bool done = record.at("accepted").get<bool>() &&
                    record.at("reboot_performed").get<bool>();
  return done ? ExitCode::kDone : ExitCode::kFailed;
}

}  // namespace

void AddUpdateCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("update", "Update the firmware of one server");
  const auto options = std::make_shared<Options>();
  AddBmcOptions(*command, options->bmc);
  command->add_option("--file", options->file, "The update package to upload")
      ->required()
      ->check(CLI::ExistingFile)
      ->type_name("FILE");
  command
      ->add_option("--target", options->targets,
                   "Redfish URI of what to update; may be given several times")
      ->type_name("URI");
  command
      ->add_option("--result", options->result,
                   "Write the library's record of the update to this file")
      ->type_name("FILE");
  command->callback([options, &exit_code] { exit_code = Run(*options); });
}

}  // namespace quorvane::tool
