// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/quorvane/base/text.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {
namespace {

// The policy makes sure of it: the page asks the network for nothing.
constexpr const char* kHead = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'">
<title>Firmware update report</title>
<style>
:root { color-scheme: light dark; --ink: #1c2430; --paper: #ffffff; --faint: #5d6878; --rule: #d5dbe3;
  --request: #1f6feb; --retry: #c77700; --poll: #b9c4d2; --line: #14804a; --good: #14804a; --bad: #b42318; --odd: #9a6700; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #e4e9f0; --paper: #12171f; --faint: #9aa7b8; --rule: #2d3746;
    --request: #6cb0ff; --retry: #f0a33a; --poll: #47556a; --line: #4cc38a; --good: #4cc38a; --bad: #ff8f85; --odd: #f0b849; } }
body { margin: 2rem auto; max-width: 72rem; padding: 0 1rem; background: var(--paper); color: var(--ink); font: 15px/1.5 system-ui, sans-serif; }
h1 { font-size: 1.4rem; overflow-wrap: anywhere; } h1::first-letter { text-transform: uppercase; } h2 { font-size: 1.1rem; margin-top: 2rem; }
.outcome { border-left: 4px solid var(--odd); padding: .2rem .8rem; }
.outcome.good { border-color: var(--good); } .outcome.bad { border-color: var(--bad); }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; } th, td { text-align: left; padding: .3rem .6rem; border-bottom: 1px solid var(--rule); vertical-align: top; white-space: nowrap; }
th { color: var(--faint); font-weight: 600; } .number { text-align: right; }
.remark { overflow-wrap: anywhere; } td.remark { white-space: normal; min-width: 16rem; } .faint { color: var(--faint); }
svg { width: 100%; min-width: 54rem; height: auto; } svg text { font: 12px system-ui, sans-serif; fill: var(--ink); } svg .tick { fill: var(--faint); }
.grid { stroke: var(--rule); } .request { fill: var(--request); } .retry { fill: var(--retry); } .poll { fill: var(--poll); }
.percent { fill: none; stroke: var(--line); stroke-width: 2; } .key { display: inline-block; width: .8rem; height: .8rem; margin: 0 .3rem 0 1rem; }
</style>
</head>
<body>
)html";

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : Printable(text)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

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

std::string Tip(const Span& span) {
  const std::string took = Duration(span.end - span.begin);
  if (span.kind == Span::Kind::kPollWait) {
    return fmt::format("Wait {} before poll {} of {}", took, span.index,
                       span.count);
  }
  if (span.kind == Span::Kind::kRetryWait) {
    return fmt::format("Wait {} before retry {} of {}", took, span.index,
                       span.count);
  }
  const std::string answer = span.status < 0 ? "no answer known"
                             : span.status == 0
                                 ? "no answer"
                                 : fmt::format("HTTP {}", span.status);
  return fmt::format("{} {}: {}, {}", span.verb.empty() ? "Request" : span.verb,
                     PathOf(span.uri), answer, took);
}

class TimeLine {
 public:
  explicit TimeLine(const Run& run) : run_(run) {
    for (const PhaseRun& phase : run.phases) {
      for (const TaskPoint& point : phase.task) {
        has_percent_ = has_percent_ || point.percent >= 0;
      }
    }
    // A run of no length still has an axis.
    length_ = std::max(run.end - run.begin, 0.001);
  }

  std::string Draw() {
    const double rows = static_cast<double>(run_.phases.size()) * kRow;
    const double height =
        kTop + rows + (has_percent_ ? kLane + kGap : 0) + kGap;
    svg_ = fmt::format(
        "<svg viewBox=\"0 0 {} {}\" role=\"img\" aria-label=\"Time line of the "
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

  // Five to ten ticks, at round times.
  [[nodiscard]] double TickStep() const {
    constexpr std::array<double, 17> kSteps = {
        0.001, 0.01, 0.1, 0.5, 1,    2,    5,    10,   30,
        60,    120,  300, 600, 1800, 3600, 7200, 21600};
    for (const double step : kSteps) {
      if (length_ / step <= 10) return step;
    }
    return std::ceil(length_ / 864000) * 86400;
  }

  void DrawAxis(double height) {
    const double step = TickStep();
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
    // Requests are short; painted last, they show between waits.
    DrawSpans(phase, y, false);
    DrawSpans(phase, y, true);
  }

  // What would only be painted over is left out: an inventory may have
  // thousands of requests.
  void DrawSpans(const PhaseRun& phase, double y, bool requests) {
    double painted_to = 0;
    for (const Span& span : phase.spans) {
      if ((span.kind == Span::Kind::kRequest) != requests) continue;
      const double begin = X(span.begin);
      const double width = std::max(X(span.end) - begin, 1.5);
      if (begin + width <= painted_to + 0.5) continue;
      painted_to = begin + width;
      svg_ += fmt::format(
          "<rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" "
          "height=\"{}\"><title>{}</title></rect>\n",
          ClassOf(span.kind), begin, y, width, kBar, Escaped(Tip(span)));
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
        const double share = std::clamp(point.percent, 0, 100) / 100.0;
        points += fmt::format("{:.1f},{:.1f} ", X(point.time),
                              top + kLane * (1 - share));
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

const char* ClassOf(Verdict::Outcome outcome) {
  switch (ExitCodeOf(outcome)) {
    case ExitCode::kDone:
      return "outcome good";
    case ExitCode::kFailed:
    case ExitCode::kUnreachable:
      return "outcome bad";
    default:
      return "outcome";
  }
}

std::string OutcomeSection(const Report& report) {
  const Verdict& verdict = report.verdict;
  std::string html = fmt::format(
      "<h1>{}</h1>\n<div class=\"{}\"><p><strong>Outcome: {}.</strong> "
      "{}</p>\n",
      report.run.title.empty() ? "Firmware update" : Escaped(report.run.title),
      ClassOf(verdict.outcome), NameOf(verdict.outcome),
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

std::string PhaseTable(const Run& run) {
  std::string html =
      "<h2>Phases</h2>\n<div class=\"scroll\"><table>\n<tr><th>Phase</th>"
      "<th>Ended</th><th class=\"number\">After</th><th "
      "class=\"number\">Took</th><th class=\"number\">Waited</th>"
      "<th>Asked</th><th>Answered</th></tr>\n";
  for (const PhaseRun& phase : run.phases) {
    const PhaseRow row = RowOf(phase);
    html += fmt::format(
        "<tr><td>{}</td><td>{}</td><td class=\"number\">{}</td><td "
        "class=\"number\">{}</td><td class=\"number\">{}</td><td>{}</td>"
        "<td>{}</td></tr>\n",
        Escaped(row.name), Escaped(row.ended),
        Duration(phase.begin - run.begin), Duration(phase.end - phase.begin),
        row.waited == 0 ? "-" : Duration(row.waited), Escaped(row.asked),
        Escaped(row.answered));
  }
  return html + "</table></div>\n";
}

std::string RemarkTable(const Run& run) {
  std::string html =
      "<h2>Decisions and troubles</h2>\n<div class=\"scroll\"><table>\n"
      "<tr><th class=\"number\">After</th><th>Phase</th><th>What</th></tr>\n";
  for (const PhaseRun& phase : run.phases) {
    for (const Remark& remark : phase.remarks) {
      html += fmt::format(
          "<tr><td class=\"number\">{}</td><td>{}</td><td "
          "class=\"remark\">{}</td></tr>\n",
          Duration(remark.time - run.begin), NameOf(phase.phase),
          Escaped(remark.text));
    }
  }
  return html + "</table></div>\n";
}

}  // namespace

std::string HtmlReport(const Report& report) {
  return std::string(kHead) + OutcomeSection(report) +
         "<h2>Time line</h2>\n<p class=\"faint\"><span class=\"key\" "
         "style=\"background:var(--request)\"></span>request<span "
         "class=\"key\" style=\"background:var(--retry)\"></span>wait before a "
         "retry<span class=\"key\" style=\"background:var(--poll)\"></span>"
         "wait before a poll<span class=\"key\" "
         "style=\"background:var(--line)\"></span>the task's percentage</p>\n"
         "<div class=\"scroll\">" +
         TimeLine(report.run).Draw() + "</div>\n" + PhaseTable(report.run) +
         RemarkTable(report.run) + "</body>\n</html>\n";
}

}  // namespace quorvane::tool
