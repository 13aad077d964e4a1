// SPDX-License-Identifier: Apache-2.0
// The overview of many logs.
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_FLEET_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_FLEET_H_

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "tools/quorvane/run/run.h"
#include "tools/quorvane/run/verdict.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {

/// A run of a log, reduced to what the overview shows.
struct FleetRow {
  std::string log = {};  ///< The path.
  std::string bmc = {};  ///< `NormalizedAddress`; empty if the log names none.
  Run run = {};  ///< Without phases and requests; of the firmware, only the
                 ///< components that `RelevantMembers` names.
  Verdict verdict = {};
  double start = 0;       ///< Seconds since 1970.
  std::string page = {};  ///< Its own page, as a link; empty: none.
  bool is_last = false;   ///< The last run of its BMC, see `SortFleet`.

  [[nodiscard]] double end() const { return start + run.end - run.begin; }
};

/// A file that contains no run, or cannot be read.
struct UnusableLog {
  std::string log = {};
  std::string reason = {};  ///< Names the log.
};

struct Fleet {
  std::vector<FleetRow> rows = {};
  std::vector<UnusableLog> unusable = {};
};

FleetRow FleetRowFrom(const Report& report, const std::string& log);

/// Whether the run was to update the BMC; an inventory or a restart was not.
bool IsUpdate(const FleetRow& row);

/// Sorts the rows by their start and finds the last run of each BMC: its last
/// update, or its last run if it has no update. A log that names no BMC has one
/// of its own.
void SortFleet(Fleet& fleet);

/// Whether the machine has the firmware, or will have it after a reboot.
bool IsSuccess(Verdict::Outcome outcome);

/// The last runs of all machines.
struct FleetTotals {
  std::size_t machines = 0;
  std::size_t successful = 0;
  double start = 0;  ///< Of the first of these runs
  double end = 0;    ///< and of the last one.
  const FleetRow* first = nullptr;
  std::array<std::size_t, kOutcomes.size()> by_outcome = {};
};
FleetTotals TotalsOf(const Fleet& fleet);

/// The address of the BMC; without one, the name of the log.
std::string NameOf(const FleetRow& row);

/// "24 machines, 26 runs, 1 unusable log"
std::string CountsText(const Fleet& fleet);

/// File name for the page of a run, without extension: letters, digits, '.',
/// '_' and '-' only.
std::string PageName(const FleetRow& row);

/// Totals, and each machine that was not updated; see `TextReport`.
std::string FleetText(const Fleet& fleet, std::size_t columns,
                      bool has_color = false);

/// An HTML page that loads nothing from elsewhere.
std::string FleetHtml(const Fleet& fleet);

/// {"machines": [...], "earlier_runs": [...], "unusable_logs": [...],
///  "totals": {...}}
std::string FleetJson(const Fleet& fleet);

/// A row for each run and each unusable log (RFC 4180). No field is a formula
/// for a spreadsheet.
std::string FleetCsv(const Fleet& fleet);

/// The text format of Prometheus, without time stamps.
std::string FleetMetrics(const Fleet& fleet);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_FLEET_H_
