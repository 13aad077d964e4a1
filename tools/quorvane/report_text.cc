// SPDX-License-Identifier: Apache-2.0
#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/quorvane/report.h"
#include "tools/quorvane/text.h"

namespace quorvane::tool {
namespace {

using Ending = PhaseRun::Ending;

std::string EndingOf(const PhaseRun& phase) {
  switch (phase.ending) {
    case Ending::kOpen:
      return "open";
    case Ending::kTaken:
      return "granted";
    case Ending::kWell:
      return phase.phase == Phase::kTask ? "ended well" : "read";
    case Ending::kBadly:
      return "failed";
    case Ending::kStaged:
      return "staged";
    case Ending::kGone:
      return "task gone, taken for a restart";
    case Ending::kMissing:
      return "task vanished";
    case Ending::kTimedOut:
      return "time is up";
    case Ending::kRefused:
      return "refused";
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
    statuses += status == 0 ? "no answer" : std::to_string(status);
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

}  // namespace

Report ReadReport(std::string_view log) {
  Report report;
  RunBuilder builder;
  RecordReader reader([&](const Record& record) {
    report.events.push_back(EventFrom(record));
    builder.Take(report.events.back());
  });
  reader.Feed(log);
  reader.EndOfLog();
  report.run = builder.run();
  report.verdict = JudgeRun(report.run, std::nullopt);
  return report;
}

PhaseRow RowOf(const PhaseRun& phase) {
  std::size_t requests = 0;
  double waited = 0;
  for (const Span& span : phase.spans) {
    if (span.kind == Span::Kind::kRequest) {
      ++requests;
    } else {
      waited += span.end - span.begin;
    }
  }
  std::string asked =
      fmt::format("{} request{}", requests, requests == 1 ? "" : "s");
  if (phase.uri_index > 0) {
    asked += fmt::format(", URI {} of {}", phase.uri_index, phase.uri_count);
  }
  std::string name = NameOf(phase.phase);
  if (phase.task_of == Phase::kActivation || phase.task_of == Phase::kRestart) {
    name = fmt::format("{} of {}", name, NameOf(phase.task_of));
  }
  return {.name = name,
          .asked = asked,
          .answered = StatusesOf(phase) + ProgressOf(phase),
          .waited = waited == 0 ? "-" : Duration(waited),
          .ended = EndingOf(phase)};
}

std::string TextReport(const Report& report) {
  const Run& run = report.run;
  std::string text = run.title.empty() ? "" : Printable(run.title) + "\n";
  if (run.earlier_runs > 0) {
    text += fmt::format("The log holds {} earlier run{}; this is the last.\n",
                        run.earlier_runs, run.earlier_runs == 1 ? "" : "s");
  }
  if (!run.phases.empty()) {
    text +=
        fmt::format("\n{:>9}  {:>9}  {:<16} {:<24} {:<10} {:<20} {}\n", "AFTER",
                    "TOOK", "PHASE", "ASKED", "WAITED", "ENDED", "ANSWERED");
  }
  for (const PhaseRun& phase : run.phases) {
    const PhaseRow row = RowOf(phase);
    text += fmt::format("{:>9}  {:>9}  {:<16} {:<24} {:<10} {:<20} {}\n",
                        Duration(phase.begin - run.begin),
                        Duration(phase.end - phase.begin), row.name, row.asked,
                        row.waited, row.ended, row.answered);
    for (const Remark& remark : phase.remarks) {
      if (remark.level < LogLevel::WARNING) continue;
      text += fmt::format("{:>9}             ! {}\n",
                          Duration(remark.time - run.begin),
                          Excerpt(remark.text, 200));
    }
  }
  const Verdict& verdict = report.verdict;
  text += fmt::format("\nOutcome: {}. {}\n", NameOf(verdict.outcome),
                      Printable(verdict.headline));
  if (!verdict.cause.empty()) {
    text += fmt::format("Cause:   {}\n", Excerpt(verdict.cause, 2000));
  }
  if (!verdict.next.empty()) {
    text += fmt::format("Next:    {}\n", Printable(verdict.next));
  }
  return text;
}

std::string JsonReport(const Report& report) {
  nlohmann::json json = {{"outcome", NameOf(report.verdict.outcome)},
                         {"headline", report.verdict.headline},
                         {"cause", report.verdict.cause},
                         {"events", nlohmann::json::array()}};
  for (const Event& event : report.events) {
    if (event.kind == EventKind::kOther) continue;
    json["events"].push_back(ToJson(event));
  }
  return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace quorvane::tool
