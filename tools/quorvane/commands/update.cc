// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "logging/redact.h"
#include "tools/quorvane/base/closest.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/commands/image_options.h"
#include "tools/quorvane/commands/password.h"
#include "tools/quorvane/commands/plan.h"
#include "tools/quorvane/commands/run_output.h"
#include "tools/quorvane/commands/run_session.h"
#include "tools/quorvane/commands/verification.h"
#include "tools/quorvane/run/facts.h"

namespace quorvane::tool {
namespace {

// Who requests the reboot after an update, and when.
enum class RestartMode {
  kSafe,   // the tool, unless it could do harm
  kRules,  // the library, by the rules alone
  kNever,
};

struct UpdateOptions : ImageOptions {
  BmcOptions bmc;
  OutputOptions output;
  RestartMode restart = RestartMode::kSafe;
  bool dry_run = false;
  VerifyOptions verify;
  bool skip_if_current = false;
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

void RequireKnownExpectations(const UpdateOptions& options,
                              const std::optional<InventoryResult>& inventory) {
  if (options.verify.expectations.empty() || options.bmc.force) return;
  if (!inventory || !inventory->was_read) {
    throw ToolError(
        ExitCode::kFailed,
        fmt::format("Cannot check --expect: {} returned no firmware inventory. "
                    "Use --force to update without the check.",
                    options.bmc.bmc));
  }
  std::vector<FirmwareMember> members;
  for (const InventoryItem& item : inventory->items) {
    members.push_back({.uri = item.uri, .name = item.Name});
  }
  RequireMembersNamed(options.verify.expectations, members, options.bmc.bmc);
}

InventoryRequest AccountOf(const UpdateRequest& request) {
  return {.ip = request.bmc_ip,
          .username = request.username,
          .password = request.password};
}

std::optional<InventoryResult> ReadInventory(RunSession& session,
                                             const UpdateRequest& request) {
  return ResultIn<InventoryResult>(
      session.Call(InventoryCall{AccountOf(request)}, RebootBy::kLibrary,
                   RunSession::OnError::kContinue));
}

// Reads first, so that a BMC that does not respond, a refused login and a wrong
// target are known before anything is changed.
void MakeCalls(RunSession& session, const UpdateOptions& options,
               const Config& rules, UpdateRequest request,
               Responses& responses) {
  if (!session.Probe()) return;
  std::optional<InventoryResult> inventory = ReadInventory(session, request);
  if (session.MustStop() || session.run().login_refused != 0 ||
      IsInventoryUnanswered(session.EndedRun())) {
    return;
  }
  RequireKnownTargets(options, inventory);
  RequireKnownExpectations(options, inventory);
  if (inventory && inventory->was_read) {
    request.prefetched_inventory = std::move(inventory->items);
  }
  NoteVersionsBefore(session, request.prefetched_inventory, options.targets);
  if (options.skip_if_current && IsCurrentBefore(session.run().firmware)) {
    session.Report("Not needed: every expected version is installed");
    return;
  }
  const bool by_rules = options.restart == RestartMode::kRules;
  responses.update = ResultIn<UpdateResponse>(
      session.Call(request, by_rules ? RebootBy::kLibrary : RebootBy::kTool));
  const bool is_accepted = responses.update && responses.update->accepted;
  if (by_rules || !is_accepted || session.MustStop()) return;
  responses.reboot = session.Reboot(rules, AccountOf(request),
                                    options.restart == RestartMode::kNever
                                        ? "--restart never was given"
                                        : "");
}

void NoteComponents(RunSession& session, const UpdateOptions& options) {
  for (const std::string& target : options.targets) {
    session.Report("Target: " + RedactUri(target));
  }
  for (const std::string& expectation : options.verify.expectations) {
    session.Report("Expect: " + expectation);
  }
}

ExitCode RunUpdate(UpdateOptions options) {
  if (options.dry_run) {
    return RunPlan({.bmc = options.bmc,
                    .image = options,
                    .json = options.output.json,
                    .reboots = options.restart != RestartMode::kNever,
                    .verify = options.verify});
  }
  RunOutput output(options.bmc, options.output,
                   {{"--file", options.file},
                    {"--image-file", options.image_file},
                    {"--share-password-file", options.share_password_file}});
  options.image = ImageUriOf(options);
  CheckImage(options);
  const Config rules = LoadRules(options.bmc);
  options.bmc.trust = ResolveTrust(options.bmc);
  const UpdateRequest request = RequestFrom(options);
  RunSession::Settings settings = SettingsFrom(options.output);
  settings.title = fmt::format(
      "{}{} with {}", kUpdateTitle, options.bmc.bmc,
      options.file.empty() ? RedactUri(options.image) : options.file);
  settings.image = ImageText(options);
  settings.attempts = rules.max_retries + 1;
  RunSession session(options.bmc, settings);
  NoteComponents(session, options);
  return output.RunToEnd(session, [&](Responses& responses) {
    MakeCalls(session, options, rules, request, responses);
    if (session.MustStop()) return;
    VerifyVersions(session, AccountOf(request),
                   AtMostEvery(rules.polling_interval, options.verify));
  });
}

}  // namespace

void AddUpdateCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("update", "Update the firmware of one server");
  const auto options = std::make_shared<UpdateOptions>();
  AddBmcOptions(*command, options->bmc);
  AddImageOptions(*command, *options);
  AddOutputOptions(*command, options->output);
  command
      ->add_option("--restart", options->restart,
                   "Reboot the system: safe (default; not if it could do "
                   "harm), rules (as the rules file says) or never")
      ->transform(CLI::Validator(ChoiceNumber({"safe", "rules", "never"}), ""))
      ->type_name("MODE");
  AddVerifyOptions(*command, options->verify);
  command
      ->add_flag("--skip-if-current", options->skip_if_current,
                 "Upload nothing if the BMC has every version of --expect")
      ->needs(command->get_option("--expect"));
  command->add_flag("--dry-run", options->dry_run,
                    "Change nothing: show what the update would do, like plan");
  command->add_flag("--no-download", options->bmc.trust.forbids_download,
                    "Never download the image of --image to upload it");
  command->callback([options, &exit_code] { exit_code = RunUpdate(*options); });
}

}  // namespace quorvane::tool
