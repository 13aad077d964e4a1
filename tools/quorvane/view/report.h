// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_TOOLS_QUORVANE_VIEW_REPORT_H_
#define QUORVANE_TOOLS_QUORVANE_VIEW_REPORT_H_

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/quorvane/run/events.h"
#include "tools/quorvane/run/run.h"
#include "tools/quorvane/run/verdict.h"

namespace quorvane::tool {

/// What a log contains. Every text is accepted, also a log that is cut off.
struct Report {
  std::vector<Event> events = {};  ///< Of all runs in the log.
  Run run = {};                    ///< The last one.
  Verdict verdict = {};
};

Report ReadReport(std::string_view log);

/// Passes each run of a log to `handler`, in order and without events; none if
/// the log has no records.
void ReadRuns(std::string_view log,
              const std::function<void(const Report&)>& handler);

/// "2024-05-01 13:07:09 +0200"
std::string StartText(const Run& run);

/// The start in seconds since 1970. A log that does not state its offset from
/// UTC has the local time of this computer.
double UnixStart(const Run& run);

/// `text` for a terminal: green, yellow (unknown) or red.
std::string Colored(const std::string& text, Verdict::Outcome outcome);

/// A row of the table of phases.
struct PhaseRow {
  std::string name, requests, responses, result;
  double waited = 0;  ///< Seconds, before retries and polls.
};
PhaseRow RowOf(const PhaseRun& phase);

/// What the log states about the run: start, duration, BMC, image, rules, tool.
std::vector<std::pair<std::string, std::string>> FactRows(const Run& run);

/// `TextOf`; with color, the line of the outcome is `Colored`.
std::string OutcomeText(const Verdict& verdict, const std::string& bmc,
                        std::size_t columns, bool has_color);

/// For a terminal of `columns`; 0: no line breaks. See `OutcomeText`.
std::string TextReport(const Report& report, std::size_t columns,
                       bool has_color = false);

/// An HTML page that loads nothing from elsewhere.
std::string HtmlReport(const Report& report);

/// {"verdict": ..., "firmware": [...]}
nlohmann::json RunJson(const Run& run, const Verdict& verdict);

/// The same with {"events": [...]}.
std::string JsonReport(const Report& report);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_VIEW_REPORT_H_
