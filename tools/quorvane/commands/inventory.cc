// SPDX-License-Identifier: Apache-2.0
#include "quorvane/inventory.h"

#include <fmt/core.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
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
  bool uris = false;
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
    Column{"TARGET", &InventoryItem::target_id},
    Column{"URI", &InventoryItem::uri}};
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

// Without the last column, the URI, if the table is wider than `columns`; 0: no
// limit.
std::string Table(const std::vector<InventoryItem>& items,
                  std::size_t columns) {
  constexpr std::size_t kGap = 2;
  const std::vector<Row> rows = RowsOf(items);
  std::array<std::size_t, kColumns.size()> widths{};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths.at(i) = std::max(widths.at(i), Columns(row.at(i)));
    }
  }
  const std::size_t width =
      std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
  const std::size_t shown =
      columns == 0 || width <= columns ? widths.size() : widths.size() - 1;
  std::string table;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < shown; ++i) {
      table += row.at(i);
      const bool is_last = i + 1 == shown;
      if (!is_last) table.append(widths.at(i) - Columns(row.at(i)) + kGap, ' ');
    }
    table += '\n';
  }
  return table;
}

std::string Uris(const std::vector<InventoryItem>& items) {
  std::string uris;
  for (const InventoryItem& item : items) uris += Printable(item.uri) + '\n';
  return uris;
}

std::string Document(const std::vector<InventoryItem>& items,
                     const InventoryOptions& options) {
  if (options.json) return EscapedJson(InventoryToJson(items)) + "\n";
  if (options.uris) return Uris(items);
  return Table(items, options.output.empty() ? TerminalColumns() : 0);
}

// The library leaves out a member that it cannot read, and takes every response
// without members for an empty collection.
ExitCode ReportGaps(const std::vector<Event>& events, const std::string& bmc) {
  int members = 0;
  std::vector<std::string> unread;
  bool is_empty = false;
  for (const Event& event : events) {
    if (event.kind == EventKind::kMembersFound) members = event.count;
    if (event.kind == EventKind::kNoMembers) is_empty = true;
    if (event.kind != EventKind::kMemberUnread) continue;
    unread.push_back(fmt::format("  {}: {}", Printable(event.uri),
                                 event.status < 0 ? "the response is not JSON"
                                 : event.status == 200
                                     ? "HTTP 200 without a body"
                                     : fmt::format("HTTP {}", event.status)));
  }
  if (is_empty) {
    fmt::print(
        stderr,
        "quorvane: {} lists no firmware: the response is an empty "
        "collection, or none at all. Check inventory_uri in the rules.\n",
        Printable(bmc));
    return ExitCode::kUnknown;
  }
  if (unread.empty()) return ExitCode::kDone;
  fmt::print(stderr,
             "quorvane: {} of {} members could not be read, so they are "
             "missing from the inventory:\n{}\n",
             unread.size(), members, fmt::join(unread, "\n"));
  return ExitCode::kUnknown;
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
  WriteDocument(output, Document(items, options));
  return ReportGaps(call.events(), options.bmc.bmc);
}

}  // namespace

void AddInventoryCommand(CLI::App& app, ExitCode& exit_code) {
  auto* command = app.add_subcommand(
      "inventory", "List the firmware of a server and its versions");
  const auto options = std::make_shared<InventoryOptions>();
  AddBmcOptions(*command, options->bmc);
  auto* json = command->add_flag("--json", options->json, "Print JSON");
  command
      ->add_flag("--uris", options->uris,
                 "Print only the URIs, for --target of an update")
      ->excludes(json);
  command
      ->add_option("--output", options->output,
                   "Write the inventory to this file")
      ->type_name("FILE");
  command->callback(
      [options, &exit_code] { exit_code = RunInventory(*options); });
}

}  // namespace quorvane::tool
