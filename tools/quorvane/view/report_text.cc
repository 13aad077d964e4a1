// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

#include "tools/quorvane/base/text.h"
#include "tools/quorvane/run/log_clock.h"
#include "tools/quorvane/view/firmware_table.h"
#include "tools/quorvane/view/report.h"

namespace quorvane::tool {
namespace {

std::string SuccessText(const PhaseRun& phase) {
  switch (phase.phase) {
    case Phase::kTask:
      return "succeeded";
    case Phase::kVerification:
      return "ended";
    case Phase::kDownload:
      return "downloaded";
    case Phase::kNone:
      return "responded";
    case Phase::kWatch:
      return phase.spans.empty() ? "continued" : "responded";
    case Phase::kInventory:
    case Phase::kSimpleUpdate:
    case Phase::kUpload:
    case Phase::kBinaryUpload:
    case Phase::kActivation:
    case Phase::kReboot:
      return "read";
  }
  return {};
}

std::string ResultText(const PhaseRun& phase) {
  switch (phase.result) {
    case PhaseResult::kOpen:
      return "cut off";
    case PhaseResult::kAccepted:
      return "accepted";
    case PhaseResult::kSucceeded:
      return SuccessText(phase);
    case PhaseResult::kFailed:
      return "failed";
    case PhaseResult::kStaged:
      return "staged";
    case PhaseResult::kNotFoundLate:
      return "not found";
    case PhaseResult::kNotFoundEarly:
      return "not found early";
    case PhaseResult::kTimedOut:
      return "timed out";
    case PhaseResult::kInterrupted:
      return "interrupted";
    case PhaseResult::kRejected:
      return !phase.spans.empty() && phase.spans.back().status == 0
                 ? "no response"
                 : "rejected";
  }
  return {};
}

// "404, 202, 200 x 4"
std::string StatusesOf(const PhaseRun& phase) {
  std::string statuses;
  const std::vector<Span>& spans = phase.spans;
  for (auto span = spans.begin(); span != spans.end();) {
    if (span->kind != Span::Kind::kRequest || span->status < 0) {
      ++span;
      continue;
    }
    const long status = span->status;
    int times = 0;
    while (span != spans.end() &&
           (span->kind != Span::Kind::kRequest || span->status == status)) {
      if (span->kind == Span::Kind::kRequest) ++times;
      ++span;
    }
    statuses += statuses.empty() ? "" : ", ";
    statuses += status == 0 ? "no response" : std::to_string(status);
    if (times > 1) statuses += fmt::format(" x {}", times);
  }
  return statuses;
}

std::string ProgressOf(const PhaseRun& phase) {
  if (phase.task.empty()) return {};
  const TaskPoint& last = phase.task.back();
  return last.percent < 0
             ? "; " + Printable(last.state)
             : fmt::format("; {} {} %", Printable(last.state), last.percent);
}

constexpr const char* kRow = "{}{:>8} {:>8} {:>8}  {:<15} {:<15} {}";

// "4.1 s", "12:30", "1:05:09": short enough for a column.
std::string Clock(double seconds) {
  const auto whole = std::lround(seconds);
  if (whole < 60) return Duration(seconds);
  return whole < 3600 ? fmt::format("{}:{:02}", whole / 60, whole % 60)
                      : fmt::format("{}:{:02}:{:02}", whole / 3600,
                                    whole / 60 % 60, whole % 60);
}

std::string ResponsesOf(const PhaseRun& phase, const PhaseRow& row) {
  if (phase.uri_count < 2) return row.responses;
  return fmt::format("{}{}URI {} of {}", row.responses,
                     row.responses.empty() ? "" : "; ", phase.uri_index,
                     phase.uri_count);
}

// The offset from UTC of a time that the tool logged, e.g. "+0200"; empty if
// unknown.
std::string ZoneOf(const std::string& zoned) {
  const std::size_t offset = zoned.find_last_of("+-");
  return offset == std::string::npos || offset < zoned.find('T')
             ? std::string()
             : zoned.substr(offset);
}

// A stamp of the log as ISO 8601.
std::string IsoTime(std::string stamp, const std::string& zone) {
  const std::size_t blank = stamp.find(' ');
  if (blank != std::string::npos) stamp[blank] = 'T';
  return stamp + zone;
}

const char* ColorOf(Verdict::Outcome outcome) {
  switch (outcome) {
    case Verdict::Outcome::kUpdated:
    case Verdict::Outcome::kCurrent:
    case Verdict::Outcome::kDone:
    case Verdict::Outcome::kStaged:
      return "\x1b[32m";
    case Verdict::Outcome::kUnknown:
    case Verdict::Outcome::kUnchanged:
    case Verdict::Outcome::kInterrupted:
    case Verdict::Outcome::kNoUpdate:
      return "\x1b[33m";
    case Verdict::Outcome::kFailed:
    case Verdict::Outcome::kMismatch:
    case Verdict::Outcome::kUnreachable:
    case Verdict::Outcome::kLoginRefused:
      return "\x1b[31m";
  }
  return "";
}

}  // namespace

std::string Colored(const std::string& text, Verdict::Outcome outcome) {
  return ColorOf(outcome) + text + "\x1b[0m";
}

std::string StartText(const Run& run) {
  const std::string zone = ZoneOf(run.Detail("Started"));
  return fmt::format("{} {}", run.begin_stamp.substr(0, 19),
                     zone.empty() ? "(local time)" : Printable(zone));
}

double UnixStart(const Run& run) {
  const double time = SecondsOf(run.begin_stamp);
  const std::string zone = ZoneOf(run.Detail("Started"));
  int hours = 0;
  int minutes = 0;
  if (std::sscanf(zone.c_str(), "%3d%2d", &hours, &minutes) == 2) {
    const int sign = zone.front() == '-' ? -1 : 1;
    return time - 3600.0 * hours - 60.0 * sign * minutes;
  }
  const auto whole = static_cast<std::time_t>(time);
  std::tm local{};
  gmtime_r(&whole, &local);
  local.tm_isdst = -1;
  return static_cast<double>(std::mktime(&local)) + time - std::floor(time);
}

std::vector<std::pair<std::string, std::string>> FactRows(const Run& run) {
  std::vector<std::pair<std::string, std::string>> rows;
  if (!run.begin_stamp.empty()) {
    rows.emplace_back("Started", StartText(run));
    rows.emplace_back("Took", Duration(run.end - run.begin));
  }
  for (const char* name :
       {"BMC", "User", "Image", "Rules", "Tool", "Certificate check"}) {
    const std::string value = run.Detail(name);
    if (!value.empty()) rows.emplace_back(name, Printable(value));
  }
  for (const auto& [name, value] : run.details) {
    if (name == "Target" || name == "Expect") {
      rows.emplace_back(name, Printable(value));
    }
  }
  return rows;
}

void ReadRuns(std::string_view log,
              const std::function<void(const Report&)>& handler) {
  RunBuilder builder;
  LogClock clock;
  bool has_records = false;
  const auto end_run = [&handler](const Run& run) {
    handler({.run = run, .verdict = JudgeRun(run)});
  };
  ReadRecords(log, [&](const Record& record) {
    has_records = true;
    Event event = EventFrom(record);
    event.time = clock.TimeOf(event);
    if (event.kind != EventKind::kRunTitle &&
        event.kind != EventKind::kUpdateBegins) {
      builder.Add(event);
      return;
    }
    const Run before = builder.run();
    builder.Add(event);
    // A run of the tool that ended before its first step counts as well.
    if (builder.run().earlier_runs > before.earlier_runs ||
        (event.kind == EventKind::kRunTitle && !before.title.empty())) {
      end_run(before);
    }
  });
  if (has_records) end_run(builder.run());
}

Report ReadReport(std::string_view log) {
  Report report;
  RunBuilder builder;
  LogClock clock;
  ReadRecords(log, [&](const Record& record) {
    Event& event = report.events.emplace_back(EventFrom(record));
    event.time = clock.TimeOf(event);
    builder.Add(event);
  });
  report.run = builder.run();
  report.verdict = JudgeRun(report.run);
  return report;
}

PhaseRow RowOf(const PhaseRun& phase) {
  std::size_t count = 0;
  double waited = 0;
  for (const Span& span : phase.spans) {
    if (span.kind == Span::Kind::kRequest) {
      ++count;
    } else {
      waited += span.end - span.begin;
    }
  }
  std::string requests =
      fmt::format("{} request{}", count, count == 1 ? "" : "s");
  if (phase.uri_index > 0) {
    requests += fmt::format(", URI {} of {}", phase.uri_index, phase.uri_count);
  }
  std::string name = NameOf(phase.phase);
  if (phase.task_of == Phase::kActivation || phase.task_of == Phase::kReboot) {
    name = fmt::format("{} task", NameOf(phase.task_of));
  }
  return {.name = name,
          .requests = requests,
          .responses = StatusesOf(phase) + ProgressOf(phase),
          .result = ResultText(phase),
          .waited = waited};
}

std::string OutcomeText(const Verdict& verdict, const std::string& bmc,
                        std::size_t columns, bool has_color) {
  std::string text = TextOf(verdict, bmc, columns);
  if (!has_color) return text;
  const std::size_t end = text.find('\n');
  return Colored(text.substr(0, end), verdict.outcome) + text.substr(end);
}

std::string TextReport(const Report& report, std::size_t columns,
                       bool has_color) {
  const Run& run = report.run;
  std::string text =
      run.title.empty() ? "" : Wrapped(Printable(run.title), columns, 2) + '\n';
  if (run.earlier_runs > 0) {
    text += fmt::format(
        "The log contains {} earlier run{}; this is the last one.\n",
        run.earlier_runs, run.earlier_runs == 1 ? "" : "s");
  }
  constexpr std::size_t kFactIndent = 19;
  for (const auto& [name, value] : FactRows(run)) {
    text +=
        Wrapped(fmt::format("{:<17}  {}", name, value), columns, kFactIndent) +
        '\n';
  }
  if (run.phases.empty()) {
    text +=
        "\nThe log contains no steps. Its level was probably warning or "
        "error.\n";
  } else {
    text += fmt::format(kRow, "\n", "AFTER", "TOOK", "WAITED", "PHASE",
                        "RESULT", "RESPONSES") +
            '\n';
  }
  for (const PhaseRun& phase : run.phases) {
    const PhaseRow row = RowOf(phase);
    text += Wrapped(fmt::format(kRow, "", Clock(phase.begin - run.begin),
                                Clock(phase.end - phase.begin),
                                row.waited == 0 ? "-" : Clock(row.waited),
                                row.name, row.result, ResponsesOf(phase, row)),
                    columns, 14) +
            '\n';
    for (const Remark& remark : phase.remarks) {
      if (remark.level < LogLevel::WARNING) continue;
      text +=
          Wrapped(fmt::format("{:>8}    ! {}", Clock(remark.time - run.begin),
                              Excerpt(remark.text, 200)),
                  columns, 14) +
          '\n';
    }
  }
  return text + '\n' +
         OutcomeText(report.verdict, run.Detail("BMC"), columns, has_color) +
         FirmwareText(run.firmware, columns);
}

nlohmann::json RunJson(const Run& run, const Verdict& verdict) {
  const std::string zone = ZoneOf(run.Detail("Started"));
  // Daylight saving time can begin or end during a run.
  const std::string ended = ZoneOf(run.Detail("Ended"));
  return {{"bmc", run.Detail("BMC")},
          {"start", IsoTime(run.begin_stamp, zone)},
          {"end", IsoTime(run.end_stamp, ended.empty() ? zone : ended)},
          {"duration_seconds", run.end - run.begin},
          {"verdict", IdOf(verdict.outcome)},
          {"exit_code", static_cast<int>(ExitCodeOf(verdict.outcome))},
          {"headline", verdict.headline},
          {"cause", verdict.cause},
          {"next", verdict.next},
          {"firmware", FirmwareJson(run.firmware)}};
}

std::string JsonReport(const Report& report) {
  nlohmann::json json = RunJson(report.run, report.verdict);
  json["events"] = nlohmann::json::array();
  for (const Event& event : report.events) {
    if (event.kind == EventKind::kOther) continue;
    json["events"].push_back(ToJson(event));
  }
  return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace quorvane::tool
