// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "logging/redact.h"
#include "tools/quorvane/base/closest.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/commands/image_options.h"
#include "tools/quorvane/commands/password.h"
#include "tools/quorvane/commands/plan.h"
#include "tools/quorvane/commands/result_document.h"
#include "tools/quorvane/commands/run_session.h"
#include "tools/quorvane/commands/verification.h"
#include "tools/quorvane/run/facts.h"
#include "tools/quorvane/view/firmware_table.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {
namespace {

namespace fs = std::filesystem;

// Who requests the reboot after an update, and when.
enum class RestartMode {
  kSafe,   // the tool, unless it could do harm
  kRules,  // the library, by the rules alone
  kNever,
};

struct UpdateOptions : ImageOptions {
  BmcOptions bmc;
  std::string result;
  std::string events;
  RestartMode restart = RestartMode::kSafe;
  bool stop_on_hangup = false;
  bool quiet = false;
  bool plain = false;
  bool json = false;
  bool dry_run = false;
  VerifyOptions verify;
  std::vector<std::string> expectations;
  bool skip_if_current = false;
};

std::string ExpectFault(const std::string& text) {
  return ExpectationFrom(text) ? std::string()
                               : "use NAME=VERSION, e.g. BIOS=1.3.0";
}

UpdateRequest RequestFrom(const UpdateOptions& options) {
  const std::string share_password =
      options.share_password_file.empty()
          ? std::string()
          : PasswordFromFile(options.share_password_file);
  return {.bmc_ip = options.bmc.bmc,
          .username = options.bmc.user,
          .password = ReadPassword(options.bmc),
          .image_uri = options.image,
          .local_file = options.file,
          .share_username = options.share_user,
          .share_password = share_password,
          .targets = options.targets,
          .verify_remote_server_certificate = options.verify_share_certificate,
          .prefetched_inventory = {}};
}

// @param reboot  Whether the system was rebooted, and by whom.
void PrintResponse(const UpdateResponse& response, const char* reboot) {
  const auto or_none = [](const std::string& text) {
    return text.empty() ? std::string("none") : Excerpt(text, 400);
  };
  const std::string percent =
      response.percent_complete < 0
          ? std::string()
          : fmt::format(" {} %", response.percent_complete);
  const std::string line = fmt::format(
      "Library: accepted {}, HTTP {}, task {}, state {}{}, reboot {}: {} (its "
      "last step only; the outcome counts)",
      response.accepted ? "yes" : "no", response.http_status,
      RedactUri(or_none(response.task_uri)), or_none(response.task_state),
      percent, reboot, or_none(response.message));
  constexpr std::size_t kIndent = 9;
  PrintText(Wrapped(line, TerminalColumns(), kIndent) + "\n");
}

// A --target that the BMC does not list would be rejected after the upload, or
// ignored.
void RequireKnownTargets(const UpdateOptions& options,
                         const std::optional<InventoryResult>& inventory) {
  if (options.targets.empty() || options.bmc.force) return;
  if (!inventory || !inventory->was_read) {
    throw ToolError(
        ExitCode::kFailed,
        fmt::format("Cannot check --target: {} returned no firmware "
                    "inventory. Use --force to update without the "
                    "check.",
                    options.bmc.bmc));
  }
  std::vector<std::string> known;
  for (const InventoryItem& item : inventory->items) known.push_back(item.uri);
  for (const std::string& target : options.targets) {
    if (std::find(known.begin(), known.end(), target) != known.end()) continue;
    const std::string closest = ClosestOf(known, target);
    throw ToolError(
        ExitCode::kUsage,
        fmt::format(
            "Cannot update {}: the inventory of {} does not contain "
            "it{}. Nothing was changed. Use a URI of `quorvane inventory "
            "--uris`, or --force to skip this check.",
            target, options.bmc.bmc,
            closest.empty() ? std::string()
                            : "; did you mean " + closest + "?"));
  }
}

// A name that identifies no member, or several, would decide nothing.
void RequireKnownExpectations(const UpdateOptions& options,
                              const std::optional<InventoryResult>& inventory) {
  if (options.expectations.empty() || options.bmc.force) return;
  if (!inventory || !inventory->was_read) {
    throw ToolError(
        ExitCode::kFailed,
        fmt::format("Cannot check --expect: {} returned no firmware inventory. "
                    "Use --force to update without the check.",
                    options.bmc.bmc));
  }
  std::vector<FirmwareMember> members;
  std::vector<std::string> names;
  for (const InventoryItem& item : inventory->items) {
    members.push_back({.uri = item.uri, .name = item.Name});
    names.push_back(item.uri.substr(item.uri.rfind('/') + 1));
    names.push_back(item.Name);
  }
  for (const std::string& text : options.expectations) {
    const std::string name = ExpectationFrom(text)->name;
    const std::size_t count = MembersNamed(members, name).size();
    if (count == 1) continue;
    const std::string closest = count == 0 ? ClosestOf(names, name) : "";
    throw ToolError(
        ExitCode::kUsage,
        fmt::format("Cannot use --expect {}: the inventory of {} has {} with "
                    "the URI, Id or Name {}{}. Nothing was changed. Use a URI "
                    "of `quorvane inventory --uris`.",
                    text, options.bmc.bmc,
                    count == 0 ? "no member" : "several members", name,
                    closest.empty() ? std::string()
                                    : "; did you mean " + closest + "?"));
  }
}

InventoryRequest AccountOf(const UpdateRequest& request) {
  return {.ip = request.bmc_ip,
          .username = request.username,
          .password = request.password};
}

VerifyOptions VerificationBy(const UpdateOptions& options,
                             const Config& rules) {
  VerifyOptions verify = options.verify;
  verify.interval_seconds =
      std::min(verify.interval_seconds, rules.polling_interval);
  return verify;
}

template <typename Result>
std::optional<Result> ResultIn(std::optional<WorkerResponse> response) {
  if (!response) return std::nullopt;
  return std::get<Result>(*std::move(response));
}

std::optional<InventoryResult> ReadInventory(RunSession& session,
                                             const UpdateRequest& request) {
  return ResultIn<InventoryResult>(
      session.Call(InventoryCall{AccountOf(request)}, RebootBy::kLibrary,
                   RunSession::OnError::kContinue));
}

// Requests the reboot, unless it could do harm.
std::optional<UpdateResponse> Reboot(RunSession& session,
                                     const UpdateOptions& options,
                                     const Config& rules,
                                     const UpdateRequest& request) {
  const std::string harm = ReasonAgainstReboot(session.run());
  const std::string reason =
      !harm.empty()              ? harm
      : !rules.reboot_required   ? "the rules require no reboot"
      : rules.reboot_uri.empty() ? "the rules contain no reboot URI"
      : options.restart == RestartMode::kNever ? "--restart never was given"
                                               : std::string();
  if (!reason.empty()) {
    session.WithholdReboot(reason);
    return std::nullopt;
  }
  return ResultIn<UpdateResponse>(
      session.Call(RestartCall{AccountOf(request)}));
}

// Reads first, so that a BMC that does not respond, a refused login and a wrong
// target are known before anything is changed.
Responses MakeCalls(RunSession& session, const UpdateOptions& options,
                    const Config& rules, UpdateRequest request) {
  Responses responses;
  if (!session.Probe()) return responses;
  std::optional<InventoryResult> inventory = ReadInventory(session, request);
  if (session.MustStop() || session.run().login_refused != 0 ||
      IsInventoryUnanswered(session.EndedRun())) {
    return responses;
  }
  RequireKnownTargets(options, inventory);
  RequireKnownExpectations(options, inventory);
  if (inventory && inventory->was_read) {
    request.prefetched_inventory = std::move(inventory->items);
  }
  NoteVersionsBefore(session, request.prefetched_inventory, options.targets);
  if (options.skip_if_current && IsCurrentBefore(session.run().firmware)) {
    session.Report("Not needed: every expected version is installed");
    return responses;
  }
  const bool by_rules = options.restart == RestartMode::kRules;
  responses.update = ResultIn<UpdateResponse>(
      session.Call(request, by_rules ? RebootBy::kLibrary : RebootBy::kTool));
  const bool is_accepted = responses.update && responses.update->accepted;
  if (by_rules || !is_accepted || session.MustStop()) return responses;
  responses.reboot = Reboot(session, options, rules, request);
  return responses;
}

// The update is over, so an error is printed and changes nothing else.
bool SaveResult(const std::string& path, const std::string& document) {
  try {
    WriteDocument(path, document);
    return true;
  } catch (const ToolError& error) {
    PrintMessage(error.what());
    return false;
  }
}

// Writes the document to --result and, with --json, to standard output.
bool SaveDocuments(const UpdateOptions& options,
                   const std::optional<StandardOutputAsError>& output,
                   const std::string& document) {
  const bool is_saved =
      options.result.empty() || SaveResult(options.result, document);
  return (!output || output->Write(document)) && is_saved;
}

void RemoveOldResult(const std::string& path) {
  CheckDocumentPath(path);
  std::error_code error;
  if (fs::is_regular_file(path, error)) fs::remove(path, error);
  if (!error || error == std::errc::no_such_file_or_directory) return;
  throw ToolError(ExitCode::kUsage,
                  fmt::format("Cannot replace {}: {}. Use a file of your own.",
                              path, error.message()));
}

void PrintOutcome(const UpdateOptions& options, const RunSession& session,
                  const Verdict& verdict, const Responses& responses) {
  if (options.quiet) {
    PrintText(fmt::format("{}: {}. {}{}{}\n", Printable(options.bmc.bmc),
                          NameOf(verdict.outcome), Printable(verdict.headline),
                          verdict.cause.empty() ? "" : " ",
                          Excerpt(verdict.cause, 2000)));
    return;
  }
  PrintText(OutcomeText(verdict, options.bmc.bmc, TerminalColumns(),
                        ShowsColors(STDOUT_FILENO)) +
            FirmwareText(session.run().firmware, TerminalColumns()));
  if (responses.update) {
    const bool by_tool = responses.reboot && responses.reboot->reboot_performed;
    PrintResponse(*responses.update, by_tool ? "by the tool"
                                     : responses.update->reboot_performed
                                         ? "yes"
                                         : "no");
  }
  PrintText("Log:     " + Printable(session.log().path()) + "\n");
}

void PrepareFiles(const UpdateOptions& options) {
  if (options.json && options.events == "-") {
    throw ToolError(ExitCode::kUsage,
                    "Cannot write the events to standard output: --json prints "
                    "the result there. Use --events with a file.");
  }
  RequireDistinctFiles(options.bmc,
                       {{"--file", options.file},
                        {"--image-file", options.image_file},
                        {"--share-password-file", options.share_password_file},
                        {"--events", options.events, /*is_written=*/true},
                        {"--result", options.result, /*is_written=*/true}});
  if (!options.result.empty()) RemoveOldResult(options.result);
}

void NoteComponents(RunSession& session, const UpdateOptions& options) {
  for (const std::string& target : options.targets) {
    session.Report("Target: " + RedactUri(target));
  }
  for (const std::string& expectation : options.expectations) {
    session.Report("Expect: " + expectation);
  }
}

ExitCode RunUpdate(UpdateOptions options) {
  if (options.dry_run) {
    return RunPlan({.bmc = options.bmc,
                    .image = options,
                    .json = options.json,
                    .reboots = options.restart != RestartMode::kNever,
                    .verify = options.verify});
  }
  PrepareFiles(options);
  std::optional<StandardOutputAsError> output;
  if (options.json) output.emplace();
  options.image = ImageUriOf(options);
  CheckImage(options);
  const Config rules = LoadRules(options.bmc);
  options.bmc.trust = ResolveTrust(options.bmc);
  const UpdateRequest request = RequestFrom(options);
  RunSession session(
      options.bmc,
      {.title = fmt::format(
           "update of {} with {}", options.bmc.bmc,
           options.file.empty() ? RedactUri(options.image) : options.file),
       .image = ImageText(options),
       .events = options.events,
       .style = ChooseStyle(options.quiet, options.plain),
       .attempts = rules.max_retries + 1,
       .on_hangup = options.stop_on_hangup ? Signals::OnHangup::kStop
                                           : Signals::OnHangup::kContinue});
  NoteComponents(session, options);
  Responses responses;
  try {
    responses = MakeCalls(session, options, rules, request);
    if (!session.MustStop()) {
      VerifyVersions(session, AccountOf(request),
                     VerificationBy(options, rules));
    }
  } catch (const ToolError& error) {
    SaveDocuments(options, output,
                  ResultDocument(session, session.Stop(error.what()),
                                 error.code(), responses));
    throw;
  }
  const Verdict verdict = session.Finish();
  bool is_complete = session.IsRecorded();
  is_complete = SaveDocuments(options, output,
                              ResultDocument(session, verdict,
                                             ExitCodeOf(verdict, is_complete),
                                             responses)) &&
                is_complete;
  PrintOutcome(options, session, verdict, responses);
  return ExitCodeOf(verdict, is_complete);
}

void AddVerificationOptions(CLI::App& command, UpdateOptions& options) {
  constexpr int kMaxSeconds = 86400;
  auto* off = command.add_flag("--no-verify", options.verify.is_off,
                               "Do not compare the versions after the update");
  command
      .add_option("--verify-timeout", options.verify.timeout_seconds,
                  "How long to wait for other versions, in seconds (1200)")
      ->excludes(off)
      ->check(CLI::Range(1, kMaxSeconds))
      ->type_name("SECONDS");
  auto* expect =
      command.add_option("--expect", options.expectations,
                         "Version that a component must have after the update; "
                         "NAME is its Id, Name or URI; may be given more than "
                         "once");
  expect->type_name("NAME=VERSION")->check(CLI::Validator(ExpectFault, ""));
  command
      .add_flag("--skip-if-current", options.skip_if_current,
                "Upload nothing if the BMC has every version of --expect")
      ->needs(expect);
}

}  // namespace

void AddUpdateCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("update", "Update the firmware of one server");
  const auto options = std::make_shared<UpdateOptions>();
  AddBmcOptions(*command, options->bmc);
  AddImageOptions(*command, *options);
  command
      ->add_option("--result", options->result,
                   "Write the result to this file, as JSON")
      ->type_name("FILE");
  command
      ->add_option("--events", options->events,
                   "Write the events of the run to this file while it goes on, "
                   "as JSON Lines; - for standard output")
      ->type_name("FILE");
  command
      ->add_option("--restart", options->restart,
                   "Reboot the system: safe (default; not if it could do "
                   "harm), rules (as the rules file says) or never")
      ->transform(CLI::Validator(ChoiceNumber({"safe", "rules", "never"}), ""))
      ->type_name("MODE");
  AddVerificationOptions(*command, *options);
  command->add_flag("--dry-run", options->dry_run,
                    "Change nothing: show what the update would do, like plan");
  command->add_flag("--json", options->json,
                    "Print the result as JSON, and everything else to standard "
                    "error");
  command->add_flag("--stop-on-hangup", options->stop_on_hangup,
                    "Stop if the terminal is closed; the default is to "
                    "continue without a display");
  command->add_flag("--no-download", options->bmc.trust.forbids_download,
                    "Never download the image of --image to upload it");
  command->add_flag("--quiet", options->quiet,
                    "Show only one line with the outcome");
  command->add_flag("--plain", options->plain,
                    "Print lines instead of the live display");
  command->callback([options, &exit_code] { exit_code = RunUpdate(*options); });
}

}  // namespace quorvane::tool
