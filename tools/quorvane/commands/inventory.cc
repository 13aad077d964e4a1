// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_call.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"

namespace quorvane::tool {
namespace {

using Json = nlohmann::json;

struct Options {
  BmcOptions bmc;
  bool json = false;
  std::string output;
};

std::string Table(const Json& items) {
  constexpr std::array<std::pair<const char*, const char*>, 4> kColumns = {
      {{"name", "NAME"},
       {"version", "VERSION"},
       {"software_id", "SOFTWARE ID"},
       {"target_id", "TARGET"}}};
  std::string table;
  std::vector<std::vector<std::string>> rows(1);
  for (const auto& [key, title] : kColumns) rows[0].emplace_back(title);
  for (const Json& item : items) {
    std::vector<std::string> row;
    for (const auto& [key, title] : kColumns) {
      const std::string text = Printable(item.at(key).get<std::string>());
      row.push_back(text.empty() ? "-" : text);
    }
    rows.push_back(std::move(row));
  }
  std::array<std::size_t, kColumns.size()> widths{};
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths.at(i) = std::max(widths.at(i), Columns(row[i]));
    }
  }
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      table += row[i];
      if (i + 1 < row.size()) {
        table.append(widths.at(i) - Columns(row[i]) + 2, ' ');
      }
    }
    table += '\n';
  }
  return table;
}

ExitCode RunInventory(const Options& options) {
  // Without --output, the same precautions apply as for this name.
  const std::string output =
      options.output.empty() ? "/dev/stdout" : options.output;
  CheckDocumentPath(output);
  BmcCall call(options.bmc, "inventory");
  const Json answer = call.Ask();
  if (!answer.at("read").get<bool>()) return call.Refused();
  const Json& items = answer.at("items");
  // The document is the library's own form, as its SaveInventoryJson writes it.
  WriteDocument(output, options.json
                            ? answer.at("document").get<std::string>() + "\n"
                            : Table(items));
  return ExitCode::kDone;
}

}  // namespace

void AddInventoryCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command =
      app.add_subcommand("inventory", "Show what firmware a server runs");
  const auto options = std::make_shared<Options>();
  AddBmcOptions(*command, options->bmc);
  command->add_flag("--json", options->json, "Print JSON instead of a table");
  command->add_option("--output", options->output, "Write to this file instead")
      ->type_name("FILE");
  command->callback(
      [options, &exit_code] { exit_code = RunInventory(*options); });
}

}  // namespace quorvane::tool
