// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <string_view>

#include "tools/quorvane/base/text.h"
#include "tools/quorvane/view/firmware_table.h"
#include "tools/quorvane/view/html.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {

extern const std::string_view kReportPage;  // report.html

namespace {

const char* ClassOf(Span::Kind kind) {
  switch (kind) {
    case Span::Kind::kRequest:
      return "request";
    case Span::Kind::kRetryWait:
      return "retry";
    case Span::Kind::kPollWait:
      return "poll";
  }
  return "";
}

std::string Tooltip(const Span& span) {
  const std::string took = Duration(span.end - span.begin);
  if (span.kind == Span::Kind::kPollWait) {
    return fmt::format("Wait {} before poll {} of {}", took, span.index,
                       span.count);
  }
  if (span.kind == Span::Kind::kRetryWait) {
    return fmt::format("Wait {} before retry {} of {}", took, span.index,
                       span.count);
  }
  const std::string response = span.status < 0 ? "response not known"
                               : span.status == 0
                                   ? "no response"
                                   : fmt::format("HTTP {}", span.status);
  return fmt::format("{} {}: {}, {}", span.verb.empty() ? "Request" : span.verb,
                     PathOf(span.uri), response, took);
}

class Timeline {
 public:
  explicit Timeline(const Run& run) : run_(run) {
    for (const PhaseRun& phase : run.phases) {
      for (const TaskPoint& point : phase.task) {
        has_percent_ = has_percent_ || point.percent >= 0;
      }
    }
    // Even a run without duration has an axis.
    length_ = std::max(run.end - run.begin, 0.001);
  }

  std::string Draw() {
    const double rows = static_cast<double>(run_.phases.size()) * kRow;
    const double height =
        kTop + rows + (has_percent_ ? kLane + kGap : 0) + kGap;
    svg_ = fmt::format(
        "<svg viewBox=\"0 0 {} {}\" role=\"img\" aria-label=\"Timeline of the "
        "run, {} long\">\n",
        kWidth, height, Duration(length_));
    DrawAxis(height);
    double y = kTop;
    for (const PhaseRun& phase : run_.phases) {
      DrawPhase(phase, y);
      y += kRow;
    }
    if (has_percent_) DrawPercent(y + kGap);
    return svg_ + "</svg>\n";
  }

 private:
  static constexpr double kWidth = 1000;
  static constexpr double kLeft = 120;
  static constexpr double kRight = 20;
  static constexpr double kTop = 24;
  static constexpr double kRow = 26;
  static constexpr double kBar = 16;
  static constexpr double kLane = 80;
  static constexpr double kGap = 14;

  [[nodiscard]] double X(double time) const {
    const double share = std::clamp((time - run_.begin) / length_, 0.0, 1.0);
    return kLeft + share * (kWidth - kLeft - kRight);
  }

  void DrawAxis(double height) {
    const double step = TickStep(length_, 10);
    for (int tick = 0; tick * step <= length_; ++tick) {
      const double x = X(run_.begin + tick * step);
      svg_ += fmt::format(
          "<line class=\"grid\" x1=\"{0:.1f}\" x2=\"{0:.1f}\" y1=\"{1}\" "
          "y2=\"{2}\"/><text class=\"tick\" x=\"{0:.1f}\" y=\"14\" "
          "text-anchor=\"middle\">{3}</text>\n",
          x, kTop - 4, height, Duration(tick * step));
    }
  }

  void DrawPhase(const PhaseRun& phase, double y) {
    svg_ += fmt::format("<text x=\"0\" y=\"{:.1f}\">{}</text>\n", y + 13,
                        Escaped(RowOf(phase).name));
    // Requests are short; drawn last, they are visible between waits.
    DrawSpans(phase, y, false);
    DrawSpans(phase, y, true);
  }

  // Spans that others would cover are omitted: an inventory can have thousands
  // of requests.
  void DrawSpans(const PhaseRun& phase, double y, bool requests) {
    double drawn_to = 0;
    for (const Span& span : phase.spans) {
      if ((span.kind == Span::Kind::kRequest) != requests) continue;
      const double begin = X(span.begin);
      const double width = std::max(X(span.end) - begin, 1.5);
      if (begin + width <= drawn_to + 0.5) continue;
      drawn_to = begin + width;
      svg_ += fmt::format(
          "<rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" "
          "height=\"{}\"><title>{}</title></rect>\n",
          ClassOf(span.kind), begin, y, width, kBar, Escaped(Tooltip(span)));
    }
  }

  void DrawPercent(double top) {
    svg_ += fmt::format(
        "<text x=\"0\" y=\"{:.1f}\">Task 100 %</text><text x=\"0\" "
        "y=\"{:.1f}\">0 %</text><line class=\"grid\" x1=\"{}\" x2=\"{}\" "
        "y1=\"{:.1f}\" y2=\"{:.1f}\"/>\n",
        top + 10, top + kLane, kLeft, kWidth - kRight, top + kLane,
        top + kLane);
    for (const PhaseRun& phase : run_.phases) {
      std::string points;
      for (const TaskPoint& point : phase.task) {
        if (point.percent < 0) continue;
        const double x = X(point.time);
        const double y =
            top + kLane * (1 - std::clamp(point.percent, 0, 100) / 100.0);
        points += fmt::format("{:.1f},{:.1f} ", x, y);
        // A line needs two points.
        svg_ += fmt::format(
            "<circle class=\"point\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"2\"/>\n",
            x, y);
      }
      if (!points.empty()) {
        svg_ += fmt::format("<polyline class=\"percent\" points=\"{}\"/>\n",
                            points);
      }
    }
  }

  const Run& run_;
  double length_ = 0;
  bool has_percent_ = false;
  std::string svg_;
};

std::string OutcomeSection(const Report& report) {
  const Verdict& verdict = report.verdict;
  const std::string css_class = OutcomeClass(verdict.outcome);
  std::string html = fmt::format(
      "<h1>{}</h1>\n<div class=\"outcome{}\"><p><strong>Outcome: {}.</strong> "
      "{}</p>\n",
      report.run.title.empty() ? "Firmware update" : Escaped(report.run.title),
      css_class.empty() ? css_class : ' ' + css_class, NameOf(verdict.outcome),
      Escaped(verdict.headline));
  if (!verdict.cause.empty()) {
    html += fmt::format("<p class=\"remark\">Cause: {}</p>\n",
                        Escaped(verdict.cause));
  }
  if (!verdict.next.empty()) {
    html += fmt::format("<p>Next: {}</p>\n", Escaped(verdict.next));
  }
  return html + "</div>\n";
}

// The name of the page in a browser tab and among its bookmarks.
std::string PageTitle(const Report& report) {
  const std::string bmc = report.run.Detail("BMC");
  return fmt::format("{}{}{} - firmware update\n",
                     NameOf(report.verdict.outcome), bmc.empty() ? "" : ": ",
                     Escaped(bmc));
}

std::string FactTableRows(const Run& run) {
  std::string html;
  for (const auto& [name, value] : FactRows(run)) {
    html +=
        fmt::format("<tr><th>{}</th><td>{}</td></tr>\n", name, Escaped(value));
  }
  return html;
}

// The versions before and after; nothing if they were not compared.
std::string FirmwareSection(const Firmware& firmware) {
  std::string rows;
  for (const FirmwareRow& row : FirmwareRows(firmware)) {
    rows += "<tr>" + Cell("Component", row.name) + Cell("Before", row.before) +
            Cell("After", row.after) + "</tr>\n";
  }
  const std::string others = OtherFirmware(firmware);
  if (rows.empty() && others.empty()) return {};
  std::string html = "<h2>Versions</h2>\n";
  if (!rows.empty()) {
    html +=
        "<div class=\"scroll\"><table class=\"rows\">\n"
        "<tr><th>Component</th><th>Before</th><th>After</th></tr>\n" +
        rows + "</table></div>\n";
  }
  return others.empty()
             ? html
             : html + "<p class=\"faint\">" + Escaped(others) + "</p>\n";
}

std::string PhaseRows(const Run& run) {
  std::string html;
  for (const PhaseRun& phase : run.phases) {
    const PhaseRow row = RowOf(phase);
    html +=
        "<tr>" + Cell("Phase", row.name) + Cell("Result", row.result) +
        Cell("After", Duration(phase.begin - run.begin), "number") +
        Cell("Took", Duration(phase.end - phase.begin), "number") +
        Cell("Waited", row.waited == 0 ? "-" : Duration(row.waited), "number") +
        Cell("Requests", row.requests) + Cell("Responses", row.responses) +
        "</tr>\n";
  }
  return html;
}

std::string RemarkRows(const Run& run) {
  std::string html;
  for (const PhaseRun& phase : run.phases) {
    for (const Remark& remark : phase.remarks) {
      html += "<tr>" +
              Cell("After", Duration(remark.time - run.begin), "number") +
              Cell("Phase", NameOf(phase.phase)) +
              Cell("What", remark.text, "remark") + "</tr>\n";
    }
  }
  return html;
}

}  // namespace

std::string HtmlReport(const Report& report) {
  return FilledPage(
      kReportPage,
      {{"<!-- title -->\n", PageTitle(report)},
       {"<!-- style -->\n", std::string(kPageStyle)},
       {"<!-- outcome -->\n", OutcomeSection(report)},
       {"<!-- facts -->\n", FactTableRows(report.run)},
       {"<!-- firmware -->\n", FirmwareSection(report.run.firmware)},
       {"<!-- timeline -->\n", Timeline(report.run).Draw()},
       {"<!-- phases -->\n", PhaseRows(report.run)},
       {"<!-- remarks -->\n", RemarkRows(report.run)}});
}

}  // namespace quorvane::tool
