// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/quorvane/base/text.h"
#include "tools/quorvane/view/fleet.h"

namespace quorvane::tool {
namespace {

using Labels = std::vector<std::pair<const char*, std::string>>;

// One bad label makes the reader reject the whole file: `Printable` leaves
// neither a control character nor a byte that is not UTF-8.
std::string LabelsText(const Labels& labels) {
  std::string text;
  for (const auto& [name, value] : labels) {
    text += fmt::format("{}{}=\"", text.empty() ? "" : ",", name);
    for (const char c : Printable(value)) {
      if (c == '\\' || c == '"') text += '\\';
      text += c;
    }
    text += '"';
  }
  return text.empty() ? text : '{' + text + '}';
}

// A metric with its series.
class Metric {
 public:
  Metric(std::string name, const char* help) : name_(std::move(name)) {
    text_ = fmt::format("# HELP {0} {1}\n# TYPE {0} gauge\n", name_, help);
  }

  void Add(const Labels& labels, double value) {
    const std::string series = LabelsText(labels);
    // Different texts of a BMC can be the same label.
    if (!series_.insert(series).second) return;
    text_ += fmt::format("{}{} {}\n", name_, series, value);
  }

  /// Empty without series.
  [[nodiscard]] std::string text() const {
    return series_.empty() ? std::string() : text_;
  }

 private:
  std::string name_;
  std::string text_;
  std::set<std::string> series_;
};

double Milliseconds(double seconds) {
  return std::round(seconds * 1000) / 1000;
}

// The metrics of the last run of each BMC.
struct RunMetrics {
  Metric success = {"quorvane_update_success",
                    "1 if the last run updated the BMC, staged the firmware or "
                    "found it installed, else 0."};
  Metric outcome = {"quorvane_update_outcome",
                    "The outcome of the last run, as a label; always 1."};
  Metric duration = {"quorvane_update_duration_seconds",
                     "Duration of the last run."};
  Metric start = {"quorvane_update_start_timestamp_seconds",
                  "Start of the last run."};
  Metric end = {"quorvane_update_end_timestamp_seconds",
                "End of the last run, or of its log so far."};
  Metric firmware = {"quorvane_update_firmware_info",
                     "Versions before and after the last run, as labels, of "
                     "components that changed or were named; always 1."};

  void Add(const FleetRow& row) {
    const bool is_success = IsSuccess(row.verdict.outcome);
    success.Add({{"bmc", row.bmc}}, is_success ? 1 : 0);
    outcome.Add({{"bmc", row.bmc}, {"outcome", IdOf(row.verdict.outcome)}}, 1);
    duration.Add({{"bmc", row.bmc}}, Milliseconds(row.run.end - row.run.begin));
    start.Add({{"bmc", row.bmc}}, Milliseconds(row.start));
    end.Add({{"bmc", row.bmc}}, Milliseconds(row.end()));
    // A BMC must not fill the database of the collector.
    constexpr std::size_t kMaxComponents = 100;
    const std::vector<FirmwareMember>& members = row.run.firmware.members;
    for (std::size_t i = 0; i < std::min(members.size(), kMaxComponents); ++i) {
      const FirmwareMember& member = members[i];
      firmware.Add({{"bmc", row.bmc},
                    {"uri", member.uri},
                    {"name", Excerpt(member.name, 120)},
                    {"before", Excerpt(member.before.value_or(""), 120)},
                    {"after", Excerpt(member.after.value_or(""), 120)}},
                   1);
    }
  }
};

}  // namespace

std::string FleetMetrics(const Fleet& fleet) {
  RunMetrics last;
  std::map<std::string, double> successes;  // their latest end, by BMC
  auto unusable = static_cast<double>(fleet.unusable.size());
  for (const FleetRow& row : fleet.rows) {
    if (row.bmc.empty()) {
      ++unusable;
      continue;
    }
    if (!IsUpdate(row)) continue;
    if (row.is_last) last.Add(row);
    if (IsSuccess(row.verdict.outcome)) {
      double& end = successes[row.bmc];
      end = std::max(end, row.end());
    }
  }
  Metric success_time("quorvane_update_last_success_timestamp_seconds",
                      "End of the last successful run.");
  for (const auto& [bmc, end] : successes) {
    success_time.Add({{"bmc", bmc}}, Milliseconds(end));
  }
  Metric unusable_logs("quorvane_report_unusable_logs",
                       "Logs that no other metric shows: they cannot be read, "
                       "contain no run, or do not name the BMC.");
  unusable_logs.Add({}, unusable);
  return last.success.text() + last.outcome.text() + last.duration.text() +
         last.start.text() + last.end.text() + success_time.text() +
         last.firmware.text() + unusable_logs.text();
}

}  // namespace quorvane::tool
