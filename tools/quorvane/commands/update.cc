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
#include "tools/quorvane/base/http_status.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/commands/image_options.h"
#include "tools/quorvane/commands/password.h"
#include "tools/quorvane/commands/run_session.h"
#include "tools/quorvane/run/facts.h"
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
};

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

// What the library returned for the update and for the reboot by the tool.
struct Responses {
  std::optional<UpdateResponse> update;
  std::optional<UpdateResponse> reboot;
};

template <typename Result>
std::optional<Result> ResultIn(std::optional<WorkerResponse> response) {
  if (!response) return std::nullopt;
  return std::get<Result>(*std::move(response));
}

std::optional<InventoryResult> ReadInventory(RunSession& session,
                                             const UpdateRequest& request) {
  return ResultIn<InventoryResult>(
      session.Call(InventoryCall{{.ip = request.bmc_ip,
                                  .username = request.username,
                                  .password = request.password}},
                   RebootBy::kLibrary, RunSession::OnError::kContinue));
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
      session.Call(RestartCall{{.ip = request.bmc_ip,
                                .username = request.username,
                                .password = request.password}}));
}

// Reads first, so that a BMC that does not respond, a refused login and a wrong
// target are known before anything is changed.
Responses MakeCalls(RunSession& session, const UpdateOptions& options,
                    const Config& rules, UpdateRequest request) {
  Responses responses;
  if (!session.Probe()) return responses;
  std::optional<InventoryResult> inventory = ReadInventory(session, request);
  if (session.MustStop() || session.run().login_refused == kHttpUnauthorized) {
    return responses;
  }
  RequireKnownTargets(options, inventory);
  if (inventory && inventory->was_read) {
    request.prefetched_inventory = std::move(inventory->items);
  }
  const bool by_rules = options.restart == RestartMode::kRules;
  responses.update = ResultIn<UpdateResponse>(
      session.Call(request, by_rules ? RebootBy::kLibrary : RebootBy::kTool));
  const bool is_accepted = responses.update && responses.update->accepted;
  if (by_rules || !is_accepted || session.MustStop()) return responses;
  responses.reboot = Reboot(session, options, rules, request);
  return responses;
}

nlohmann::json RecordOf(const std::optional<UpdateResponse>& response) {
  return response ? nlohmann::json::parse(
                        EscapedJson(UpdateResponseToJson(*response)))
                  : nlohmann::json();
}

std::string ResultDocument(const RunSession& session, const Verdict& verdict,
                           ExitCode code, const Responses& responses) {
  const nlohmann::json json = {{"bmc", session.run().Detail("BMC")},
                               {"verdict", IdOf(verdict.outcome)},
                               {"exit_code", static_cast<int>(code)},
                               {"headline", verdict.headline},
                               {"cause", verdict.cause},
                               {"next", verdict.next},
                               {"record", RecordOf(responses.update)},
                               {"reboot", RecordOf(responses.reboot)},
                               {"log", session.log().path()}};
  return EscapedJson(json.dump(2, ' ', false,
                               nlohmann::json::error_handler_t::replace)) +
         "\n";
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
                        ShowsColors(STDOUT_FILENO)));
  if (responses.update) {
    const bool by_tool = responses.reboot && responses.reboot->reboot_performed;
    PrintResponse(*responses.update, by_tool ? "by the tool"
                                     : responses.update->reboot_performed
                                         ? "yes"
                                         : "no");
  }
  PrintText("Log:     " + Printable(session.log().path()) + "\n");
}

ExitCode RunUpdate(UpdateOptions options) {
  RequireDistinctFiles(options.bmc,
                       {{"--file", options.file},
                        {"--image-file", options.image_file},
                        {"--share-password-file", options.share_password_file},
                        {"--events", options.events, /*is_written=*/true},
                        {"--result", options.result, /*is_written=*/true}});
  if (!options.result.empty()) RemoveOldResult(options.result);
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
  Responses responses;
  try {
    responses = MakeCalls(session, options, rules, request);
  } catch (const ToolError& error) {
    const Verdict stopped = session.Stop(error.what());
    if (!options.result.empty()) {
      SaveResult(options.result,
                 ResultDocument(session, stopped, error.code(), responses));
    }
    throw;
  }
  const Verdict verdict = session.Finish();
  bool is_complete = session.IsRecorded();
  if (!options.result.empty()) {
    const std::string document = ResultDocument(
        session, verdict, ExitCodeOf(verdict, is_complete), responses);
    is_complete = SaveResult(options.result, document) && is_complete;
  }
  PrintOutcome(options, session, verdict, responses);
  return ExitCodeOf(verdict, is_complete);
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
