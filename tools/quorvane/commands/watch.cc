// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "logging/redact.h"
#include "tools/quorvane/base/address.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/http_status.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/sha256.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/commands/run_output.h"
#include "tools/quorvane/commands/run_session.h"
#include "tools/quorvane/commands/verification.h"
#include "tools/quorvane/redfish/resource.h"
#include "tools/quorvane/redfish/tasks.h"
#include "tools/quorvane/run/advice.h"
#include "tools/quorvane/run/bmc_text.h"
#include "tools/quorvane/run/facts.h"
#include "tools/quorvane/view/report.h"
#include "tools/quorvane/worker/bmc_lock.h"

namespace quorvane::tool {
namespace {

struct WatchOptions {
  BmcOptions bmc;
  OutputOptions output;
  VerifyOptions verify;
  std::string task;    // URI; empty: the tasks in the log
  std::string before;  // file with the inventory before the update
  bool restart = false;
};

// The run as it is if it ends where it broke off.
Run Continued(const Report& report) {
  RunBuilder builder;
  for (const Event& event : report.events) builder.Add(event);
  builder.Add({.kind = EventKind::kContinued,
               .time = report.run.end,
               .stamp = report.run.end_stamp});
  return builder.Ended();
}

bool IsConfirmed(const Verdict& verdict) {
  return verdict.outcome == Verdict::Outcome::kUpdated ||
         verdict.outcome == Verdict::Outcome::kCurrent;
}

// The verdict if there is nothing to follow.
std::optional<Verdict> EndOf(const Report& report,
                             const WatchOptions& options) {
  const bool compares_others =
      !options.before.empty() || !options.verify.expectations.empty();
  if (IsConfirmed(report.verdict) && !compares_others) return report.verdict;
  const Run run = Continued(report);
  const Facts facts = FactsOf(run);
  if (facts.image == Answer::kAccepted || facts.image == Answer::kInDoubt ||
      facts.has_task) {
    return std::nullopt;
  }
  const bool has_verdict =
      report.run.verdict &&
      report.verdict.outcome != Verdict::Outcome::kInterrupted;
  return has_verdict ? report.verdict : JudgeRun(run);
}

Report ReadLog(const WatchOptions& options) {
  Report report = ReadReport(ReadRegular(options.bmc.log, "log"));
  const std::string& title = report.run.title;
  if (report.run.HasUpdateTitle()) return report;
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot follow the run in {}: {}. Use the file that "
                  "`quorvane update` printed after \"Log:\", or --bmc, --user "
                  "and --task.",
                  options.bmc.log,
                  title.empty()
                      ? std::string("it is not the log of an update")
                      : fmt::format("its last run is \"{}\"", title)));
}

// With other rules, the URIs and the meaning of the task states can differ.
void RequireSameRules(const Run& run, const BmcOptions& options) {
  const std::string file = RulesFileOf(options);
  const std::string hash = fmt::format("(SHA-256 {})", Sha256Of(file));
  if (run.Detail("Rules").find(hash) != std::string::npos) return;
  throw ToolError(ExitCode::kUsage,
                  fmt::format("Cannot continue with {}: the file is not the "
                              "rules file of the run any more. Nothing was "
                              "sent. To use it nevertheless, name it with "
                              "--rules.",
                              file));
}

// Whatever the command line leaves open is as in the run.
void TakeFromLog(const Run& run, BmcOptions& options) {
  const LoggedAccess access = AccessIn(run);
  if (!options.bmc.empty() &&
      NormalizedAddress(options.bmc) != NormalizedAddress(access.bmc)) {
    throw ToolError(ExitCode::kUsage,
                    fmt::format("Cannot use --bmc {}: the run in {} updates "
                                "{}. Leave out --bmc.",
                                options.bmc, options.log, access.bmc));
  }
  options.bmc = access.bmc;
  if (options.user.empty()) options.user = access.user;
  if (options.rules.empty()) {
    options.rules = access.rules;
    RequireSameRules(run, options);
  }
  if (!options.trust_options.IsSet()) {
    options.trust_options.pin = access.pin;
    options.trust_options.cacert = access.cacert;
  }
}

// Reads resources as a part of the run.
class SessionReader : public ResourceReader {
 public:
  SessionReader(RunSession& session, const InventoryRequest& account)
      : session_(session), account_(account) {}

  std::vector<Resource> Read(const std::vector<std::string>& uris) override {
    constexpr double kLimitSeconds = 120;
    std::vector<Resource> resources(uris.size());
    for (std::size_t i = 0; i < uris.size(); ++i) resources[i].uri = uris[i];
    if (session_.MustStop()) return resources;
    auto result = ResultIn<ReadResult>(session_.Call(ReadCall{
        .request = account_, .uris = uris, .limit_seconds = kLimitSeconds}));
    if (!result) return resources;
    for (std::size_t i = 0; i < uris.size(); ++i) {
      ReadResource& one = result->resources.at(i);
      if (one.status == kHttpUnauthorized && !session_.MustStop()) {
        session_.StopAtRefusedLogin();
      }
      resources[i] = {.uri = std::move(one.uri),
                      .status = one.status,
                      .body = std::move(one.body),
                      .reason = std::move(one.reason)};
    }
    return resources;
  }

 private:
  RunSession& session_;
  const InventoryRequest& account_;
};

// A task that the BMC started although its response was lost. Empty if it
// cannot be distinguished from others.
std::string FindTask(RunSession& session, const InventoryRequest& account) {
  SessionReader reader(session, account);
  ResourceCache cache(reader);
  const BmcTasks tasks = ReadTasks(cache, TaskServiceUri(cache));
  std::vector<std::string> running;
  for (const BmcTask& task : tasks.tasks) {
    if (task.IsRunning()) running.push_back(task.uri);
  }
  if (running.size() != 1) return {};
  session.Report("Task found: the BMC runs one task, " +
                 RedactUri(running.front()));
  return running.front();
}

// Of all polls of the task.
int HighestPercent(const Run& run, const std::string& task_uri) {
  int percent = -1;
  for (const PhaseRun& phase : run.phases) {
    if (phase.phase != Phase::kTask || phase.uri != task_uri) continue;
    for (const TaskPoint& point : phase.task) {
      percent = std::max(percent, point.percent);
    }
  }
  return percent;
}

// The tasks whose end is not known, and their progress.
std::vector<WatchCall> TasksToFollow(const Run& run,
                                     const InventoryRequest& account) {
  std::vector<WatchCall> calls;
  for (const PhaseRun* task : TasksOf(run)) {
    const TaskEnd end = EndOf(*task);
    if (!IsOpen(end) && end != TaskEnd::kStaged) continue;
    calls.push_back({.request = account,
                     .task_uri = task->uri,
                     .percent_complete = HighestPercent(run, task->uri)});
  }
  return calls;
}

// A BMC that does not respond may restart, but polls of another computer would
// only waste the time limits.
bool IsAnotherComputer(RunSession& session, const std::string& bmc) {
  session.Read(ProbeCall{bmc}, kProbeSeconds + 5);
  return IsUntrusted(session.run().transfer_failure);
}

void Follow(RunSession& session, const WatchOptions& options,
            const Config& rules, const InventoryRequest& account,
            Responses& responses) {
  if (IsAnotherComputer(session, account.ip)) return;
  const Run earlier = session.EndedRun();
  std::vector<WatchCall> calls =
      options.task.empty() ? TasksToFollow(earlier, account)
                           : std::vector{WatchCall{.request = account,
                                                   .task_uri = options.task}};
  const Facts facts = FactsOf(earlier);
  if (calls.empty() && !facts.has_task && facts.image == Answer::kInDoubt) {
    if (std::string task = FindTask(session, account); !task.empty()) {
      calls.push_back({.request = account, .task_uri = std::move(task)});
    }
  }
  for (const WatchCall& call : calls) {
    if (session.MustStop()) return;
    static_cast<void>(session.Call(call));
  }
  if (session.MustStop() || facts.reboot == Answer::kAccepted ||
      facts.reboot == Answer::kInDoubt) {
    return;
  }
  // The operator may have rebooted the system meanwhile.
  const bool is_updated = options.restart && IsUpdatedNow(session, account);
  if (session.MustStop()) return;
  responses.reboot =
      session.Reboot(rules, account,
                     !options.restart ? "--restart was not given"
                     : is_updated     ? "the versions show the update already"
                                      : "");
}

std::vector<InventoryItem> ReadInventoryFile(const std::string& file) {
  const auto json =
      nlohmann::json::parse(ReadRegular(file, "inventory"), nullptr,
                            /*allow_exceptions=*/false);
  std::vector<InventoryItem> items;
  try {
    for (const auto& member : json.at("inventory")) {
      InventoryItem item;
      item.uri = member.at("id");
      item.Name = member.at("Name");
      item.Version = member.at("Version");
      item.target_id = member.at("target_id");
      items.push_back(std::move(item));
    }
  } catch (const nlohmann::json::exception& /*error*/) {
    throw ToolError(ExitCode::kUsage,
                    fmt::format("Cannot use --before {}: it is not the output "
                                "of `quorvane inventory --json`.",
                                file));
  }
  if (!items.empty()) return items;
  throw ToolError(
      ExitCode::kUsage,
      fmt::format("Cannot use --before {}: it lists no firmware.", file));
}

// Under the lock, because an update that still runs has no end.
std::optional<Verdict> EndUnderLock(const WatchOptions& options,
                                    Report& report) {
  const BmcLock lock(options.bmc.bmc);
  report = ReadLog(options);
  return EndOf(report, options);
}

// What is known about the firmware before anything is sent.
void RequireKnownExpectations(const WatchOptions& options, const Run& run,
                              const std::vector<InventoryItem>& before) {
  if (options.bmc.force) return;
  std::vector<FirmwareMember> members = run.firmware.members;
  if (!before.empty()) members.clear();
  for (const InventoryItem& item : before) {
    members.push_back({.uri = item.uri, .name = item.Name});
  }
  if (members.empty()) return;
  RequireMembersNamed(options.verify.expectations, members, options.bmc.bmc);
}

std::vector<std::string> TargetsOf(const Run& run) {
  std::vector<std::string> targets;
  for (const auto& [name, value] : run.details) {
    if (name == "Target") targets.push_back(value);
  }
  return targets;
}

ExitCode RunWatch(WatchOptions options) {
  const bool continues = options.task.empty();
  Report report;
  if (continues) {
    report = ReadLog(options);
    TakeFromLog(report.run, options.bmc);
  }
  RunOutput output(options.bmc, options.output, {{"--before", options.before}});
  if (continues) {
    if (const auto verdict = EndUnderLock(options, report)) {
      return output.Print(report.run, *verdict, options.bmc.log,
                          /*is_recorded=*/true, {});
    }
  }
  const auto before = options.before.empty()
                          ? std::vector<InventoryItem>{}
                          : ReadInventoryFile(options.before);
  RequireKnownExpectations(options, report.run, before);
  const Config rules = LoadRules(options.bmc);
  options.bmc.trust = ResolveTrust(options.bmc);
  const InventoryRequest account{.ip = options.bmc.bmc,
                                 .username = options.bmc.user,
                                 .password = ReadPassword(options.bmc)};
  RunSession::Settings settings = SettingsFrom(options.output);
  settings.title = fmt::format("{}the task {} of {}", kWatchTitle,
                               RedactUri(options.task), options.bmc.bmc);
  settings.continues = continues;
  settings.attempts = rules.max_retries + 1;
  RunSession session(options.bmc, settings);
  for (const std::string& one : options.verify.expectations) {
    session.Report("Expect: " + one);
  }
  if (!before.empty()) {
    NoteVersionsBefore(session, before, TargetsOf(session.run()));
  }
  return output.RunToEnd(session, [&](Responses& responses) {
    Follow(session, options, rules, account, responses);
    if (session.MustStop() || IsUntrusted(session.run().transfer_failure)) {
      return;
    }
    VerifyVersions(session, account,
                   AtMostEvery(rules.polling_interval, options.verify));
  });
}

}  // namespace

void AddWatchCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "watch", "Follow an update that broke off to its end; uploads nothing");
  const auto options = std::make_shared<WatchOptions>();
  AddBmcOptions(*command, options->bmc);
  CLI::Option* log = command->get_option("--log");
  log->description(
      "Log of the run, which continues in it; with --task, a log to append to");
  command->get_option("--bmc")->required(false);
  command->get_option("--user")->required(false);
  command
      ->add_option("--task", options->task,
                   "Follow this task of --bmc instead, as `quorvane tasks` "
                   "lists it")
      ->check(CLI::Validator(TaskUriFault, ""))
      ->needs(command->get_option("--bmc"))
      ->needs(command->get_option("--user"))
      ->type_name("URI");
  command
      ->add_option("--before", options->before,
                   "Compare with the versions in this file, which `quorvane "
                   "inventory --json` wrote before the update")
      ->type_name("FILE");
  command->add_flag("--restart", options->restart,
                    "Reboot the system if that is still due and safe");
  AddVerifyOptions(*command, options->verify);
  AddOutputOptions(*command, options->output);
  command->callback([options, &exit_code] {
    if (options->task.empty() && options->bmc.log.empty()) {
      throw ToolError(ExitCode::kUsage,
                      "Name the run to follow: --log FILE, or --bmc, --user "
                      "and --task.");
    }
    exit_code = RunWatch(*options);
  });
}

}  // namespace quorvane::tool
