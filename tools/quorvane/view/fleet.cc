// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/view/fleet.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "tools/quorvane/base/address.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

constexpr std::string_view kRestartTitle = "restart of ";

nlohmann::json RowJson(const FleetRow& row) {
  nlohmann::json json = RunJson(row.run, row.verdict);
  json["title"] = row.run.title;
  json["log"] = row.log;
  return json;
}

nlohmann::json TotalsJson(const Fleet& fleet) {
  const FleetTotals totals = TotalsOf(fleet);
  nlohmann::json verdicts;
  for (const Verdict::Outcome outcome : kOutcomes) {
    verdicts[IdOf(outcome)] =
        totals.by_outcome.at(static_cast<std::size_t>(outcome));
  }
  return {{"machines", totals.machines},
          {"runs", fleet.rows.size()},
          {"successful", totals.successful},
          {"unusable_logs", fleet.unusable.size()},
          {"verdicts", verdicts}};
}

std::string Counted(std::size_t count, const char* noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string TroubleText(const FleetRow& row, std::size_t columns,
                        bool has_color) {
  constexpr std::size_t kIndent = 9;
  const Verdict& verdict = row.verdict;
  const std::string outcome = NameOf(verdict.outcome);
  std::string head = Wrapped(fmt::format("{}: {}. {}", NameOf(row), outcome,
                                         Printable(verdict.headline)),
                             columns, kIndent);
  // Not if the outcome is in another line than the name.
  const std::size_t at = head.find(": " + outcome + '.');
  if (has_color && at != std::string::npos) {
    head.replace(at + 2, outcome.size(), Colored(outcome, verdict.outcome));
  }
  std::string text = head + '\n';
  if (!verdict.cause.empty()) {
    text +=
        Wrapped("  Cause: " + Excerpt(verdict.cause, 500), columns, kIndent) +
        '\n';
  }
  return text + Wrapped("  Log:   " + Printable(row.log), columns, kIndent) +
         '\n';
}

}  // namespace

FleetRow FleetRowFrom(const Report& report, const std::string& log) {
  FleetRow row{.log = log, .run = report.run, .verdict = report.verdict};
  Run& run = row.run;
  row.bmc = NormalizedAddress(run.Detail("BMC"));
  // Its log ends like that of an update that was cut off.
  if (!IsUpdate(row) && run.title.rfind(kRestartTitle, 0) != 0) {
    row.verdict = {.outcome = Verdict::Outcome::kNoUpdate,
                   .headline = "The log contains no update."};
  }
  row.start = UnixStart(run);
  std::vector<FirmwareMember> members;
  for (const FirmwareMember* member : RelevantMembers(report.run.firmware)) {
    members.push_back(*member);
  }
  run.firmware.members = std::move(members);
  run.phases = {};
  run.requests = {};
  return row;
}

void SortFleet(Fleet& fleet) {
  std::stable_sort(fleet.rows.begin(), fleet.rows.end(),
                   [](const FleetRow& one, const FleetRow& other) {
                     return one.start < other.start;
                   });
  std::unordered_map<std::string, FleetRow*> last;
  for (FleetRow& row : fleet.rows) {
    const std::string machine = row.bmc.empty() ? "log " + row.log : row.bmc;
    const auto [entry, is_new] = last.emplace(machine, &row);
    if (is_new || IsUpdate(row) || !IsUpdate(*entry->second)) {
      entry->second->is_last = false;
      entry->second = &row;
      row.is_last = true;
    }
  }
}

bool IsUpdate(const FleetRow& row) {
  return row.verdict.outcome != Verdict::Outcome::kNoUpdate &&
         // A program that uses the library logs no title.
         (row.run.title.empty() || row.run.HasUpdateTitle());
}

bool IsSuccess(Verdict::Outcome outcome) {
  return ExitCodeOf(outcome) == ExitCode::kDone &&
         outcome != Verdict::Outcome::kNoUpdate;
}

FleetTotals TotalsOf(const Fleet& fleet) {
  FleetTotals totals;
  for (const FleetRow& row : fleet.rows) {
    if (!row.is_last) continue;
    if (totals.first == nullptr) {
      totals.first = &row;
      totals.start = row.start;
      totals.end = row.end();
    }
    totals.end = std::max(totals.end, row.end());
    ++totals.machines;
    if (IsSuccess(row.verdict.outcome)) ++totals.successful;
    ++totals.by_outcome.at(static_cast<std::size_t>(row.verdict.outcome));
  }
  return totals;
}

std::string NameOf(const FleetRow& row) {
  const std::string bmc = row.run.Detail("BMC");
  return Excerpt(bmc.empty() ? row.log.substr(row.log.rfind('/') + 1) : bmc,
                 120);
}

std::string CountsText(const Fleet& fleet) {
  std::string text = Counted(TotalsOf(fleet).machines, "machine") + ", " +
                     Counted(fleet.rows.size(), "run");
  if (!fleet.unusable.empty()) {
    text += ", " + Counted(fleet.unusable.size(), "unusable log");
  }
  return text;
}

std::string PageName(const FleetRow& row) {
  constexpr std::size_t kMaxLength = 100;
  const auto safe = [](std::string text) {
    for (char& c : text) {
      const bool is_plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                            (c >= 'A' && c <= 'Z') || c == '.' || c == '-';
      if (!is_plain) c = '_';
    }
    return text;
  };
  std::string name = safe(NameOf(row)).substr(0, kMaxLength);
  if (name.front() == '.' || name.front() == '-') name.front() = '_';
  return name + '-' + safe(row.run.begin_stamp);
}

std::string FleetText(const Fleet& fleet, std::size_t columns, bool has_color) {
  const FleetTotals totals = TotalsOf(fleet);
  std::string text = Wrapped(CountsText(fleet), columns, 2) + '\n';
  if (totals.first != nullptr) {
    text +=
        Wrapped(fmt::format("Started {}, took {}", StartText(totals.first->run),
                            Duration(totals.end - totals.start)),
                columns, 2) +
        '\n';
  }
  for (const Verdict::Outcome outcome : kOutcomes) {
    const std::size_t count =
        totals.by_outcome.at(static_cast<std::size_t>(outcome));
    if (count == 0) continue;
    const std::string name = fmt::format("{:<13}", NameOf(outcome));
    text += fmt::format("  {} {:>6}\n",
                        has_color ? Colored(name, outcome) : name, count);
  }
  std::string troubles;
  for (const FleetRow& row : fleet.rows) {
    if (!row.is_last || ExitCodeOf(row.verdict.outcome) == ExitCode::kDone) {
      continue;
    }
    troubles += TroubleText(row, columns, has_color);
  }
  return troubles.empty() ? text : text + '\n' + troubles;
}

std::string FleetJson(const Fleet& fleet) {
  nlohmann::json json = {{"machines", nlohmann::json::array()},
                         {"earlier_runs", nlohmann::json::array()},
                         {"unusable_logs", nlohmann::json::array()},
                         {"totals", TotalsJson(fleet)}};
  for (const FleetRow& row : fleet.rows) {
    json[row.is_last ? "machines" : "earlier_runs"].push_back(RowJson(row));
  }
  for (const UnusableLog& unusable : fleet.unusable) {
    json["unusable_logs"].push_back(
        {{"log", unusable.log}, {"reason", unusable.reason}});
  }
  return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace quorvane::tool
