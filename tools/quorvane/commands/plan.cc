// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/plan.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "logging/redact.h"
#include "tools/quorvane/base/sha256.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_call.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/redfish/plan.h"
#include "tools/quorvane/view/plan_text.h"

namespace quorvane::tool {
namespace {

PlanImage PlanImageOf(const ImageOptions& options) {
  if (options.file.empty()) return {.uri = RedactUri(options.image)};
  std::error_code unknown;
  return {.path = options.file,
          .size = std::filesystem::file_size(options.file, unknown),
          .sha256 = Sha256Of(options.file)};
}

}  // namespace

ExitCode RunPlan(PlanOptions options) {
  ImageOptions& image = options.image;
  RequireDistinctFiles(options.bmc,
                       {{"--file", image.file},
                        {"--image-file", image.image_file},
                        {"--share-password-file", image.share_password_file}});
  image.image = ImageUriOf(image);
  CheckImage(image);
  PlanRequest request{.bmc = options.bmc.bmc,
                      .rules = LoadRules(options.bmc),
                      .image = PlanImageOf(image),
                      .targets = image.targets,
                      .may_download = !options.bmc.trust.forbids_download,
                      .verify_seconds = options.verify.is_off
                                            ? 0.0
                                            : options.verify.timeout_seconds};
  if (!options.reboots) request.rules.reboot_required = false;
  BmcReader reader(options.bmc, "plan");
  ServiceFacts facts = ReadFacts(reader, FactsFor(request));
  const Plan plan = MakePlan(std::move(facts), std::move(request));
  PrintText(
      options.json
          ? EscapedJson(ToJson(plan).dump(
                2, ' ', false, nlohmann::json::error_handler_t::replace)) +
                "\n"
          : DescribePlan(plan, {.columns = TerminalColumns(),
                                .is_colored = ShowsColors(STDOUT_FILENO)}));
  return plan.HasBlocker() ? ExitCode::kFailed : ExitCode::kDone;
}

void AddPlanCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "plan", "Show what an update would do, without changing anything");
  const auto options = std::make_shared<PlanOptions>();
  AddBmcOptions(*command, options->bmc);
  AddImageOptions(*command, options->image);
  command->add_flag("--no-download", options->bmc.trust.forbids_download,
                    "Never download the image of --image to upload it");
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options, &exit_code] { exit_code = RunPlan(*options); });
}

}  // namespace quorvane::tool
