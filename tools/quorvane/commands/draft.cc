// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/redfish/draft.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "quorvane/config.h"
#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/input_file.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_call.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/rules/check.h"

namespace quorvane::tool {
namespace {

struct DraftOptions {
  BmcOptions bmc;
  std::string output;
};

// The file is valid JSON: the library has loaded it.
nlohmann::ordered_json BaseOf(const BmcOptions& options) {
  static_cast<void>(LoadRules(options));
  const std::string file =
      options.rules.empty() ? ResolveConfigPath() : options.rules;
  auto base =
      nlohmann::ordered_json::parse(ReadRegular(file, "rules file"), nullptr,
                                    /*allow_exceptions=*/false);
  if (base.is_object()) return base;
  throw ToolError(ExitCode::kUsage,
                  RulesError(file, "the file is not a JSON object"));
}

// Standard output may be the rules file.
void PrintReasons(const std::vector<DraftReason>& reasons) {
  const std::size_t columns = TerminalColumns();
  for (const DraftReason& one : reasons) {
    fmt::print(stderr, "{}\n",
               Wrapped(fmt::format("{}: {}{}", one.key,
                                   one.must_be_checked ? "check this: " : "",
                                   Printable(one.reason)),
                       columns, 4));
  }
}

void PrintRefused(const std::vector<std::string>& uris) {
  for (const std::string& uri : uris) {
    PrintMessage(
        fmt::format("The BMC does not let the account read {} (HTTP 401 or "
                    "403), so the draft does not consider it.",
                    uri));
  }
}

// The draft keeps what the base rules contain, so it can also keep a fault.
void RequireValid(const std::string& document, const DraftOptions& options) {
  const std::vector<Finding> findings = CheckRules(document);
  for (const Finding& finding : findings) {
    fmt::print(
        stderr, "{}\n",
        LineOf(finding, options.output.empty() ? "draft" : options.output,
               ShowsColors(STDERR_FILENO)));
  }
  if (!HasErrors(findings)) return;
  throw ToolError(
      ExitCode::kFailed,
      fmt::format("The draft for {} has errors, so it was not written. They "
                  "come from the base rules: correct those, or use others with "
                  "--rules.",
                  options.bmc.bmc));
}

ExitCode RunDraft(const DraftOptions& options) {
  const std::string output =
      options.output.empty() ? "/dev/stdout" : options.output;
  CheckDocumentPath(output);
  RequireDistinctFiles(options.bmc, {{"--output", options.output, true}});
  const DraftRequest request{.bmc = options.bmc.bmc,
                             .user = options.bmc.user,
                             .base = BaseOf(options.bmc)};
  BmcReader reader(options.bmc, "rules draft");
  const ServiceFacts facts = ReadFacts(reader, FactsFor(request));
  if (!facts.update_service) {
    throw ToolError(
        ExitCode::kFailed,
        fmt::format("Cannot draft rules for {}: {}. Run the command again, "
                    "with --log FILE to see the responses.",
                    options.bmc.bmc,
                    facts.update_service_presence == Presence::kAbsent
                        ? "it has no UpdateService (HTTP 404)"
                        : "its UpdateService could not be read"));
  }
  const RulesDraft draft = DraftRules(facts, request);
  const std::string document =
      draft.rules.dump(2, ' ', false,
                       nlohmann::json::error_handler_t::replace) +
      "\n";
  PrintReasons(draft.reasons);
  PrintRefused(facts.refused_uris);
  RequireValid(document, options);
  WriteDocument(output, document);
  return ExitCode::kDone;
}

}  // namespace

void AddRulesDraftCommand(CLI::App& rules, ExitCode& exit_code) {
  auto* command = rules.add_subcommand(
      "draft", "Write a rules file that fits a BMC, and explain each choice");
  const auto options = std::make_shared<DraftOptions>();
  AddBmcOptions(*command, options->bmc);
  command
      ->add_option("--output", options->output,
                   "Write the rules to this file (default: print them)")
      ->type_name("FILE");
  command->callback([options, &exit_code] { exit_code = RunDraft(*options); });
}

}  // namespace quorvane::tool
