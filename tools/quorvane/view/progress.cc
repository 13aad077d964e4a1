// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/view/progress.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "tools/quorvane/base/http_status.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

std::string CutTo(std::size_t columns, const std::string& line) {
  return Columns(line) < columns ? line : Excerpt(line, columns - 4);
}

std::string Bar(int percent, std::size_t columns) {
  const std::size_t width = std::clamp<std::size_t>(columns / 2, 10, 40);
  const auto full =
      static_cast<std::size_t>(std::clamp(percent, 0, 100)) * width / 100;
  return fmt::format("[{}{}] {:3d} %", std::string(full, '#'),
                     std::string(width - full, '-'), percent);
}

std::string AttemptText(const PhaseRun& phase, int attempts,
                        std::size_t columns) {
  std::string tried = fmt::format("{:<13}", NameOf(phase.phase));
  if (phase.phase == Phase::kTask) {
    const auto poll = std::find_if(
        phase.spans.rbegin(), phase.spans.rend(),
        [](const Span& one) { return one.kind == Span::Kind::kPollWait; });
    if (poll != phase.spans.rend()) {
      tried += fmt::format("poll {} of {}  ", poll->index, poll->count);
    }
  } else if (phase.uri_index > 0) {
    tried += fmt::format("URI {} of {}, attempt {} of {}  ", phase.uri_index,
                         phase.uri_count, phase.attempt, attempts);
  }
  constexpr std::size_t kMinColumns = 8;
  const std::size_t used = Columns(tried) + 1;
  return tried + Elided(PathOf(phase.uri),
                        std::max(columns, used + kMinColumns) - used);
}

// The request that sends the image now; nullptr if there is none, or if nothing
// is known about its progress.
const Span* SendingSpan(const PhaseRun& phase) {
  if (phase.spans.empty() || !SendsImage(phase.phase)) return nullptr;
  const Span& span = phase.spans.back();
  return span.is_open && span.total > 0 && !span.is_sent ? &span : nullptr;
}

constexpr double kMiB = 1 << 20;

// "12.3 of 27.1 MiB"
std::string SentText(const Span& span) {
  return fmt::format("{:.1f} of {:.1f} MiB",
                     static_cast<double>(span.sent) / kMiB,
                     static_cast<double>(span.total) / kMiB);
}

// "sending, 3.1 MiB/s, 5 s left"
std::string RateText(const Span& span, double now) {
  const double seconds = now - span.begin;
  const double rate =
      seconds > 0 ? static_cast<double>(span.sent) / seconds : 0;
  // The rate of the first second includes the set-up of the connection.
  if (seconds < 1 || rate <= 0) return "sending";
  const double left = static_cast<double>(span.total - span.sent) / rate;
  return fmt::format("sending, {:.1f} MiB/s, {} left", rate / kMiB,
                     Duration(std::ceil(left)));
}

int PercentSent(const Span& span) {
  return static_cast<int>(span.sent * 100 / span.total);
}

std::string WaitText(const PhaseRun& phase, double now) {
  if (phase.spans.empty() || !phase.spans.back().is_open) return {};
  if (const Span* span = SendingSpan(phase)) return RateText(*span, now);
  const Span& span = phase.spans.back();
  const double passed = std::max(now - span.begin, 0.0);
  const double left = span.planned_seconds - passed;
  if (span.kind == Span::Kind::kRequest || left <= 0) {
    const bool is_request = span.kind == Span::Kind::kRequest;
    // Nothing but the tool's own record shows that all of it was sent.
    const bool is_sending =
        is_request && !span.is_sent && SendsImage(phase.phase);
    const bool is_processed =
        is_request && span.is_sent &&
        (phase.phase == Phase::kUpload || phase.phase == Phase::kBinaryUpload);
    return fmt::format(
        "{}, {}",
        is_sending     ? "sending"
        : is_processed ? "image sent, the BMC processes it"
                       : "waiting for the response",
        Duration(std::floor(is_request ? passed : std::abs(left))));
  }
  return fmt::format(
      "{} in {} of {}",
      span.kind == Span::Kind::kPollWait ? "next poll" : "next attempt",
      Duration(std::floor(left)), Duration(span.planned_seconds));
}

constexpr std::size_t kIndent = 11;  // after the time

std::string ClockOf(const Event& event) {
  constexpr std::size_t kClock = 11;  // after the date
  constexpr std::size_t kClockLength = 8;
  return event.stamp.substr(kClock, kClockLength);
}

void Print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

class LiveProgress final : public Progress {
 public:
  explicit LiveProgress(int attempts) : attempts_(attempts) {}
  ~LiveProgress() override { Print(Erasure()); }

  void OnEvent(const Event& event, const Run& run) override {
    if (PrintWarnings(steps_.Add(event, run)) ||
        MonotonicSeconds() - drawn_at_ > kRedrawSeconds) {
      Draw(run);
    }
  }
  void OnTick(const Run& run) override {
    PrintWarnings(steps_.Flush());
    Draw(run);
  }
  void Finish() override {
    PrintWarnings(steps_.Flush());
    Print(Erasure());
  }

 private:
  static constexpr double kRedrawSeconds = 0.1;

  // Moves to the first line of the block and clears everything below.
  std::string Erasure() {
    const int lines = std::exchange(lines_, 0);
    return lines == 0 ? std::string() : fmt::format("\x1b[{}A\r\x1b[J", lines);
  }

  bool PrintWarnings(const std::vector<StepLine>& lines) {
    bool has_warning = false;
    for (const StepLine& line : lines) {
      if (!line.is_warning) continue;
      has_warning = true;
      const std::string text =
          Wrapped(TextOf(line), TerminalColumns(), kIndent);
      Print(
          Erasure() +
          (ShowsColors(STDOUT_FILENO) ? "\x1b[33m" + text + "\x1b[0m" : text) +
          "\n");
    }
    return has_warning;
  }

  void Draw(const Run& run) {
    drawn_at_ = MonotonicSeconds();
    std::string screen = Erasure();
    for (const std::string& line :
         LiveBlock(run, attempts_, drawn_at_, TerminalColumns())) {
      screen += line + "\n";
      ++lines_;
    }
    Print(screen);
  }

  int attempts_;
  int lines_ = 0;
  double drawn_at_ = 0;
  StepLines steps_;
};

class PlainProgress : public Progress {
 public:
  void OnEvent(const Event& event, const Run& run) override {
    if (event.kind == EventKind::kBytesSent) return PrintSent(event, run);
    PrintLines(steps_.Add(event, run));
  }
  void OnTick(const Run& /*run*/) override { PrintLines(steps_.Flush()); }
  void Finish() override { PrintLines(steps_.Flush()); }

 private:
  // A line now and then, because a log of a terminal keeps each one.
  void PrintSent(const Event& event, const Run& run) {
    constexpr double kSeconds = 10;
    const Span* span =
        run.phases.empty() ? nullptr : SendingSpan(run.phases.back());
    if (span == nullptr ||
        event.time - std::max(sent_at_, span->begin) < kSeconds) {
      return;
    }
    sent_at_ = event.time;
    PrintLines({{.clock = ClockOf(event),
                 .step = fmt::format("{}: {} % sent ({}), {}",
                                     NameOf(run.phases.back().phase),
                                     PercentSent(*span), SentText(*span),
                                     RateText(*span, event.time))}});
  }

  static void PrintLines(const std::vector<StepLine>& lines) {
    for (const StepLine& line : lines) {
      Print(Wrapped(TextOf(line), TerminalColumns(), kIndent) + "\n");
    }
  }

  StepLines steps_;
  double sent_at_ = 0;
};

class NoProgress final : public Progress {
 public:
  void OnEvent(const Event& /*event*/, const Run& /*run*/) override {}
  void OnTick(const Run& /*run*/) override {}
  void Finish() override {}
};

// The step that an event describes, without its time.
// A table of all kinds, which the compiler checks for missing ones.
// NOLINTNEXTLINE(readability-function-size)
std::string StepText(const Event& event, const Run& run) {
  const std::string place =
      event.index < 0 ? std::string()
                      : fmt::format(" ({} of {})", event.index, event.count);
  // The library logs each check of the verification like an inventory.
  const bool is_verifying =
      run.IsVerifying() && event.phase != Phase::kVerification;
  if (is_verifying) return {};
  switch (event.kind) {
    case EventKind::kVerification:
    case EventKind::kVerificationEnds:
      return "Verification: " + Printable(event.text);
    case EventKind::kAttemptBegins:
      return fmt::format("{}: {}{}", NameOf(event.phase),
                         Printable(PathOf(event.uri)), place);
    case EventKind::kStatus:
      return event.status == 0
                 ? fmt::format("{}: no response", NameOf(event.phase))
                 : fmt::format("{}: HTTP {}", NameOf(event.phase),
                               event.status);
    case EventKind::kWaitBegins:
      return fmt::format("Waiting {} before retry{}", Duration(event.seconds),
                         place);
    case EventKind::kInventoryRead:
      return fmt::format("Inventory: {} items", event.count);
    case EventKind::kTaskBegins:
      return "Task: polling " + Printable(PathOf(event.uri));
    case EventKind::kTaskState:
      return event.percent < 0
                 ? "Task: " + Printable(event.state)
                 : fmt::format("Task: {} {} %", Printable(event.state),
                               event.percent);
    case EventKind::kLoginRefused:
      return event.status == kHttpForbidden
                 ? std::string(
                       "Inventory: the account lacks the right to read "
                       "it (HTTP 403).")
                 : fmt::format("The BMC refused the login (HTTP {}).",
                               event.status);
    case EventKind::kPhaseBegins:
      return event.phase == Phase::kDownload
                 ? "Download: " + Printable(event.uri)
             : event.phase == Phase::kVerification
                 ? "Verification: comparing the versions, at most " +
                       Duration(event.seconds)
                 : std::string();
    case EventKind::kFirmwareBefore:
    case EventKind::kFirmwareAfter:
    case EventKind::kUpdateNotNeeded:
    case EventKind::kVerificationSkipped:
    case EventKind::kOther:
    case EventKind::kRunTitle:
    case EventKind::kContinued:
    case EventKind::kUpdateBegins:
    case EventKind::kRequestSent:
    case EventKind::kResponseReceived:
    case EventKind::kRequestFailed:
    case EventKind::kBody:
    case EventKind::kPollInterval:
    case EventKind::kPollBegins:
    case EventKind::kPollFailed:
    case EventKind::kTaskBody:
    case EventKind::kTaskSucceeded:
    case EventKind::kTaskFailed:
    case EventKind::kTaskStaged:
    case EventKind::kTaskNotFoundLate:
    case EventKind::kTaskNotFoundEarly:
    case EventKind::kNoTask:
    case EventKind::kUploadsRejected:
    case EventKind::kRebootSkipped:
    case EventKind::kRunEnds:
    case EventKind::kInterrupted:
    case EventKind::kRunDetail:
    case EventKind::kElapsed:
    case EventKind::kRequestNotSent:
    case EventKind::kBytesSent:
    case EventKind::kBodySent:
    case EventKind::kFinished:
    case EventKind::kRebootWithheld:
    case EventKind::kWorkerDied:
    case EventKind::kOutcome:
    case EventKind::kCause:
    case EventKind::kNextStep:
    case EventKind::kMembersFound:
    case EventKind::kNoMembers:
    case EventKind::kMemberUnread:
    case EventKind::kProblem:
      break;  // only as a warning or an error
  }
  if (event.level < LogLevel::WARNING) return {};
  // The phase of the problem, unless the message starts with it.
  const std::string phase =
      run.phases.empty() ? "" : NameOf(run.phases.back().phase);
  const bool has_phase = event.text.rfind(phase, 0) == 0;
  const std::string text =
      event.text.substr(0, event.text.rfind(kRetrying.text));
  return fmt::format("{}{}{}", has_phase ? "" : phase, has_phase ? "" : ": ",
                     Excerpt(text, 400));
}

}  // namespace

ProgressStyle ChooseStyle(bool quiet, bool plain) {
  if (quiet) return ProgressStyle::kQuiet;
  return IsDrawable(STDOUT_FILENO) && !plain && !IsSet("CI")
             ? ProgressStyle::kLive
             : ProgressStyle::kPlain;
}

std::unique_ptr<Progress> MakeProgress(ProgressStyle style, int attempts) {
  switch (style) {
    case ProgressStyle::kLive:
      return std::make_unique<LiveProgress>(attempts);
    case ProgressStyle::kPlain:
      return std::make_unique<PlainProgress>();
    case ProgressStyle::kQuiet:
      break;
  }
  return std::make_unique<NoProgress>();
}

std::vector<std::string> LiveBlock(const Run& run, int attempts, double now,
                                   std::size_t columns) {
  std::vector<std::string> lines;
  const auto add = [&](const std::string& line) {
    if (!line.empty()) lines.push_back(CutTo(columns, line));
  };
  if (run.IsVerifying()) {
    const double passed = std::max(now - run.phases.back().begin, 0.0);
    add(fmt::format("{:<13}{}", NameOf(Phase::kVerification),
                    Printable(run.verification.state)));
    add(fmt::format("comparing the versions, {} of at most {}",
                    Duration(std::floor(passed)),
                    Duration(run.verification.limit_seconds)));
  } else if (!run.phases.empty()) {
    const PhaseRun& phase = run.phases.back();
    add(AttemptText(phase, attempts, columns));
    if (!phase.task.empty()) {
      int percent = -1;
      for (const TaskPoint& point : phase.task) {
        percent = std::max(percent, point.percent);
      }
      const std::string state = Printable(phase.task.back().state);
      add(percent < 0 ? state : Bar(percent, columns) + "  " + state);
    }
    if (const Span* span = SendingSpan(phase)) {
      add(Bar(PercentSent(*span), columns) + "  " + SentText(*span));
    }
    add(WaitText(phase, now));
  }
  const double elapsed = run.begin == 0 ? 0 : std::max(now - run.begin, 0.0);
  add("elapsed " + Duration(std::floor(elapsed)));
  return lines;
}

std::string TextOf(const StepLine& line) {
  return fmt::format("{} {} {}", line.clock, line.is_warning ? '!' : ' ',
                     line.step);
}

std::vector<StepLine> StepLines::Add(const Event& event, const Run& run) {
  const StepLine line{.clock = ClockOf(event),
                      .is_warning = event.level >= LogLevel::WARNING,
                      .step = StepText(event, run)};
  if (line.step.empty()) return {};
  if (waiting_) {
    if (event.status == 0 && !waiting_->has_response) return {};
    const auto has = [&event](std::string_view text) {
      return event.text.find(text) != std::string::npos;
    };
    if (line.is_warning &&
        line.step.find(waiting_->reason) != std::string::npos) {
      waiting_.reset();
    } else if (line.is_warning && (has(kRetrying.text) || has(kNextUri.text))) {
      waiting_->line.is_warning = true;
      return Flush();
    }
  }
  std::vector<StepLine> lines = Flush();
  if (event.kind == EventKind::kRequestFailed) {
    waiting_ = Failure{.line = line, .reason = event.text};
  } else if (event.kind == EventKind::kStatus && event.status >= 400) {
    waiting_ = Failure{.line = line,
                       .reason = std::to_string(event.status),
                       .has_response = true};
  } else {
    lines.push_back(line);
  }
  return lines;
}

std::vector<StepLine> StepLines::Flush() {
  if (!waiting_) return {};
  return {std::exchange(waiting_, std::nullopt)->line};
}

}  // namespace quorvane::tool
