// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "tools/quorvane/base/text.h"
#include "tools/quorvane/view/firmware_table.h"
#include "tools/quorvane/view/fleet.h"
#include "tools/quorvane/view/html.h"

namespace quorvane::tool {

extern const std::string_view kFleetPage;  // fleet.html

namespace {

const char* MarkClass(Verdict::Outcome outcome) {
  // An inventory is neither a success nor a failure of an update.
  return outcome == Verdict::Outcome::kNoUpdate ? "" : OutcomeClass(outcome);
}

// What needs attention comes first.
int RankOf(Verdict::Outcome outcome) {
  if (outcome == Verdict::Outcome::kNoUpdate) return 3;
  if (IsSuccess(outcome)) return 2;
  return std::string_view(OutcomeClass(outcome)) == "bad" ? 0 : 1;
}

// The time from the start of the first last run to the end of the last one.
class TimeAxis {
 public:
  explicit TimeAxis(const FleetTotals& totals)
      : start_(totals.start),
        length_(std::max(totals.end - totals.start, 1.0)),
        step_(TickStep(length_, kMaxTicks)) {}

  // With the last tick, a label would leave the table.
  [[nodiscard]] std::string Labels() const {
    std::string html = "<div class=\"axis\">";
    for (int tick = 0; tick * step_ <= 0.9 * length_; ++tick) {
      html += fmt::format("<span style=\"left:{:.3f}%\">{}</span>",
                          100 * tick * step_ / length_, Duration(tick * step_));
    }
    return html + "</div>";
  }

  [[nodiscard]] std::string Lane(const FleetRow& row) const {
    const double from = Share(row.start);
    const double to = Share(row.end());
    std::string html = fmt::format(
        "<div class=\"lane\" title=\"{}, {}\" style=\"background-size:{:.3f}% "
        "100%\">",
        Escaped(StartText(row.run)), Duration(row.run.end - row.run.begin),
        100 * step_ / length_);
    // Earlier runs can be long before the others.
    if (row.end() >= start_ && row.start <= start_ + length_) {
      html += fmt::format(
          "<i class=\"{}\" style=\"left:min({:.3f}%, 100% - 3px);"
          "width:{:.3f}%\"></i>",
          MarkClass(row.verdict.outcome), from, to - from);
    }
    return html + "</div>";
  }

 private:
  static constexpr int kMaxTicks = 4;

  [[nodiscard]] double Share(double time) const {
    return 100 * std::clamp((time - start_) / length_, 0.0, 1.0);
  }

  double start_;
  double length_;
  double step_;
};

std::string SortedCell(const char* name, const char* css_class, double key,
                       const std::string& html) {
  return fmt::format(
      R"(<td data-name="{}" class="{}" data-sort="{:.3f}">{}</td>)", name,
      css_class, key, html);
}

// The name of the log often is the name of the server.
std::string LogNameHtml(const FleetRow& row, const std::string& machine) {
  constexpr std::size_t kMaxColumns = 60;
  std::string name = row.log.substr(row.log.rfind('/') + 1);
  if (const auto end = name.rfind(".log");
      end != std::string::npos && end > 0) {
    name.resize(end);
  }
  if (name == machine) return {};
  return "<div class=\"faint\">" + Escaped(Excerpt(name, kMaxColumns)) +
         "</div>";
}

std::string MachineCell(const FleetRow& row) {
  const std::string machine = NameOf(row);
  const std::string name = Escaped(machine);
  return R"(<td data-name="Machine">)" +
         (row.page.empty() ? name
                           : fmt::format(R"(<a href="{}">{}</a>)",
                                         Escaped(row.page), name)) +
         (row.is_last ? "" : " <span class=\"faint\">(earlier)</span>") +
         LogNameHtml(row, machine) + "</td>";
}

std::string VersionsHtml(const Firmware& firmware) {
  constexpr std::size_t kMaxShown = 10;
  const std::vector<FirmwareRow> components = FirmwareRows(firmware);
  std::string html;
  for (std::size_t i = 0; i < std::min(components.size(), kMaxShown); ++i) {
    const FirmwareRow& component = components[i];
    html += fmt::format(
        "<div>{} {}</div>", Escaped(component.name),
        component.note.empty()
            ? Escaped(component.before) + " &rarr; " + Escaped(component.after)
            : Escaped(component.after + " (" + component.note + ")"));
  }
  if (components.size() > kMaxShown) {
    html +=
        fmt::format("<div>and {} more</div>", components.size() - kMaxShown);
  }
  return html;
}

// What the user has to know: of a success, only what speaks against it.
std::string CauseHtml(const Verdict& verdict) {
  constexpr std::size_t kMaxColumns = 1000;
  std::string html;
  if (!IsSuccess(verdict.outcome)) {
    html = "<div>" + Escaped(verdict.headline) + "</div>";
  }
  if (!verdict.cause.empty()) {
    html += "<div>" + Escaped(Excerpt(verdict.cause, kMaxColumns)) + "</div>";
  }
  return html;
}

std::string RowHtml(const FleetRow& row, const TimeAxis& axis) {
  const Verdict::Outcome outcome = row.verdict.outcome;
  return fmt::format(R"(<tr class="{}" data-outcome="{}">)",
                     row.is_last ? "" : "earlier", IdOf(outcome)) +
         MachineCell(row) +
         SortedCell("Outcome", "", RankOf(outcome),
                    fmt::format("<span class=\"mark {}\">{}</span>",
                                MarkClass(outcome), NameOf(outcome))) +
         SortedCell("Started", "when", row.start, Escaped(StartText(row.run))) +
         SortedCell("Took", "number", row.run.end - row.run.begin,
                    Duration(row.run.end - row.run.begin)) +
         fmt::format(R"(<td data-name="Versions" class="versions">{}</td>)",
                     VersionsHtml(row.run.firmware)) +
         fmt::format(R"(<td data-name="Cause" class="remark">{}</td>)",
                     CauseHtml(row.verdict)) +
         SortedCell("Time", "time", row.start, axis.Lane(row)) + "</tr>\n";
}

std::string MachineRows(const Fleet& fleet, const FleetTotals& totals) {
  const TimeAxis axis(totals);
  const auto heading = [](const char* name, const char* attributes = "") {
    return fmt::format(
        "<th{}><button type=\"button\" disabled>{}</button></th>", attributes,
        name);
  };
  std::string html =
      "<thead><tr>" + heading("Machine") + heading("Outcome", " data-number") +
      heading("Started", " data-number") +
      heading("Took", " data-number class=\"number\"") + heading("Versions") +
      heading("Cause") +
      fmt::format(
          "<th class=\"time\" data-number><button type=\"button\" "
          "disabled>Time since the first start</button>{}</th>",
          axis.Labels()) +
      "</tr></thead>\n<tbody>\n";
  std::vector<const FleetRow*> rows;
  rows.reserve(fleet.rows.size());
  for (const FleetRow& row : fleet.rows) rows.push_back(&row);
  std::stable_sort(
      rows.begin(), rows.end(), [](const FleetRow* one, const FleetRow* other) {
        return RankOf(one->verdict.outcome) < RankOf(other->verdict.outcome);
      });
  for (const FleetRow* row : rows) html += RowHtml(*row, axis);
  return html + "</tbody>\n";
}

std::string TotalsHtml(const FleetTotals& totals) {
  std::string html = "<div class=\"controls\">\n";
  for (const Verdict::Outcome outcome : kOutcomes) {
    const std::size_t count =
        totals.by_outcome.at(static_cast<std::size_t>(outcome));
    if (count == 0) continue;
    html += fmt::format(
        "<button type=\"button\" class=\"mark {}\" data-outcome=\"{}\" "
        "aria-pressed=\"false\" disabled>{} <strong>{}</strong></button>\n",
        MarkClass(outcome), IdOf(outcome), NameOf(outcome), count);
  }
  return html + "</div>\n";
}

std::string UnusableHtml(const Fleet& fleet) {
  if (fleet.unusable.empty()) return {};
  std::string html = "<h2>Unusable logs</h2>\n<ul class=\"remark\">\n";
  for (const UnusableLog& unusable : fleet.unusable) {
    html += "<li>" + Escaped(unusable.reason) + "</li>\n";
  }
  return html + "</ul>\n";
}

std::string FactsHtml(const FleetTotals& totals) {
  if (totals.first == nullptr) return {};
  return fmt::format(
      "<tr><th>Started</th><td>{}</td></tr>\n<tr><th>Took</th><td>{}</td></tr>"
      "\n<tr><th>Successful</th><td>{} of {}</td></tr>\n",
      Escaped(StartText(totals.first->run)),
      Duration(totals.end - totals.start), totals.successful, totals.machines);
}

}  // namespace

std::string FleetHtml(const Fleet& fleet) {
  const FleetTotals totals = TotalsOf(fleet);
  return FilledPage(kFleetPage,
                    {{"<!-- title -->\n",
                      fmt::format("{} of {} successful - firmware updates\n",
                                  totals.successful, totals.machines)},
                     {"<!-- style -->\n", std::string(kPageStyle)},
                     {"<!-- heading -->\n",
                      "<h1>Firmware updates: " + CountsText(fleet) + "</h1>\n"},
                     {"<!-- facts -->\n", FactsHtml(totals)},
                     {"<!-- unusable -->\n", UnusableHtml(fleet)},
                     {"<!-- totals -->\n", TotalsHtml(totals)},
                     {"<!-- machines -->\n", MachineRows(fleet, totals)}});
}

}  // namespace quorvane::tool
