// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_REPORT_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_REPORT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/quorvane/run/events.h"
#include "tools/quorvane/run/run.h"
#include "tools/quorvane/run/verdict.h"

namespace quorvane::tool {

/// A log read back. Any text makes one, a log cut off anywhere included.
struct Report {
  std::vector<Event> events = {};  ///< Of all runs in the log.
  Run run = {};                    ///< The last one.
  Verdict verdict = {};
};

Report ReadReport(std::string_view log);

/// What a phase did, in the words of the report's table.
struct PhaseRow {
  std::string name, asked, answered, ended;
  double waited = 0;  ///< Seconds, before retries and polls.
};
PhaseRow RowOf(const PhaseRun& phase);

/// For a terminal whose lines have `columns`; 0 breaks none.
std::string TextReport(const Report& report, std::size_t columns);

/// One page that needs nothing from anywhere else.
std::string HtmlReport(const Report& report);

/// {"outcome": ..., "events": [...]}
std::string JsonReport(const Report& report);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_REPORT_H_
