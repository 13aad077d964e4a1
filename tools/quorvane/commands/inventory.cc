// SPDX-License-Identifier: Apache-2.0
#include "quorvane/inventory.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/text.h"
#include "tools/quorvane/commands/bmc_call.h"
#include "tools/quorvane/commands/bmc_options.h"
#include "tools/quorvane/commands/commands.h"
#include "tools/quorvane/worker/protocol.h"

namespace quorvane::tool {
namespace {

struct InventoryOptions {
  BmcOptions bmc;
  bool json = false;
  std::string output;
};

struct Column {
  const char* title;
  std::string InventoryItem::*member;
};
constexpr std::array kColumns = {
    Column{"NAME", &InventoryItem::Name},
    Column{"VERSION", &InventoryItem::Version},
    Column{"SOFTWARE ID", &InventoryItem::SoftwareId},
    Column{"TARGET", &InventoryItem::target_id}};
using Row = std::array<std::string, kColumns.size()>;

std::vector<Row> RowsOf(const std::vector<InventoryItem>& items) {
  std::vector<Row> rows(1 + items.size());
  for (std::size_t column = 0; column < kColumns.size(); ++column) {
    rows[0].at(column) = kColumns.at(column).title;
    for (std::size_t i = 0; i < items.size(); ++i) {
      const std::string text = Printable(items[i].*kColumns.at(column).member);
      rows[i + 1].at(column) = text.empty() ? "-" : text;
    }
  }
  return rows;
}

std::string Table(const std::vector<InventoryItem>& items) {
  const std::vector<Row> rows = RowsOf(items);
  std::array<std::size_t, kColumns.size()> widths{};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths.at(i) = std::max(widths.at(i), Columns(row.at(i)));
    }
  }
  std::string table;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      table += row.at(i);
      const bool is_last = i + 1 == row.size();
      if (!is_last) table.append(widths.at(i) - Columns(row.at(i)) + 2, ' ');
    }
    table += '\n';
  }
  return table;
}

ExitCode RunInventory(const InventoryOptions& options) {
  // Standard output gets the same precautions as a file.
  const std::string output =
      options.output.empty() ? "/dev/stdout" : options.output;
  CheckDocumentPath(output);
  RequireDistinctFiles(options.bmc, {{"--output", options.output, true}});
  BmcCall call(options.bmc, "inventory");
  const auto [was_read, items] = call.Make<InventoryResult, InventoryCall>();
  if (!was_read) return call.PrintFailure();
  WriteDocument(output, options.json
                            ? EscapedJson(InventoryToJson(items)) + "\n"
                            : Table(items));
  return ExitCode::kDone;
}

}  // namespace

void AddInventoryCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "inventory", "List the firmware of a server and its versions");
  const auto options = std::make_shared<InventoryOptions>();
  AddBmcOptions(*command, options->bmc);
  command->add_flag("--json", options->json, "Print JSON");
  command
      ->add_option("--output", options->output,
                   "Write the inventory to this file")
      ->type_name("FILE");
  command->callback(
      [options, &exit_code] { exit_code = RunInventory(*options); });
}

}  // namespace quorvane::tool
