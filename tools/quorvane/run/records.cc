// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/run/records.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <utility>

namespace quorvane::tool {
namespace {

constexpr std::string_view kStampFormat = "dddd-dd-dd dd:dd:dd.ddd";

bool IsStamp(std::string_view text) {
  if (text.size() != kStampFormat.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool is_digit = text[i] >= '0' && text[i] <= '9';
    if (kStampFormat[i] == 'd' ? !is_digit : text[i] != kStampFormat[i]) {
      return false;
    }
  }
  return true;
}

int ParseNumber(std::string_view stamp, std::size_t from, std::size_t length) {
  int number = 0;
  std::from_chars(stamp.data() + from, stamp.data() + from + length, number);
  return number;
}

// In the order of the levels.
constexpr std::array<std::string_view, 4> kLevelNames = {"DEBUG  ", "INFO   ",
                                                         "WARNING", "ERROR  "};

std::string_view NameOf(LogLevel level) {
  return kLevelNames.at(static_cast<std::size_t>(level));
}

std::optional<LogLevel> ParseLevel(std::string_view name) {
  const auto* const found =
      std::find(kLevelNames.begin(), kLevelNames.end(), name);
  if (found == kLevelNames.end()) return std::nullopt;
  return static_cast<LogLevel>(found - kLevelNames.begin());
}

// Removes "[text]" from the start of `line` and returns the text.
std::optional<std::string_view> ConsumeBracket(std::string_view& line) {
  if (line.empty() || line.front() != '[') return std::nullopt;
  const std::size_t end = line.find(']');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view inside = line.substr(1, end - 1);
  line.remove_prefix(end + 1);
  return inside;
}

bool ConsumeSpace(std::string_view& line) {
  if (line.empty() || line.front() != ' ') return false;
  line.remove_prefix(1);
  return true;
}

// A message can start with a bracket ("[RF-TASK] ..."), so not every bracket
// contains a component.
bool IsComponent(std::string_view name) {
  return !name.empty() &&
         name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_") ==
             std::string_view::npos;
}

// Precedes all lines of a message but the first.
constexpr std::string_view kIndent = "    ";

// Joins the lines of a log into records.
class LogSplitter {
 public:
  explicit LogSplitter(const std::function<void(Record)>& handler)
      : handler_(handler) {}

  void AddLine(std::string_view line) {
    std::optional<Record> next = RecordFrom(line);
    if (next && !has_begun_) {
      has_begun_ = true;
      is_tool_log_ = next->component == kToolComponent;
    }
    if (next && (is_tool_log_ || next->component != kToolComponent)) {
      EmitRecord();
      record_ = std::move(next);
    } else if (record_) {
      if (is_tool_log_ && line.substr(0, kIndent.size()) == kIndent) {
        line.remove_prefix(kIndent.size());
      }
      record_->message.append("\n").append(line);
    }
  }

  void EmitRecord() {
    if (!record_) return;
    // An empty line separates the runs in a file.
    std::string& message = record_->message;
    while (!message.empty() && message.back() == '\n') message.pop_back();
    handler_(*std::exchange(record_, std::nullopt));
  }

 private:
  const std::function<void(Record)>& handler_;
  std::optional<Record> record_ = {};
  bool has_begun_ = false;
  bool is_tool_log_ = false;
};

}  // namespace

std::string ZonedStampNow() {
  return fmt::format("{:%Y-%m-%dT%H:%M:%S%z}",
                     fmt::localtime(std::time(nullptr)));
}

double MonotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  constexpr double kNanoseconds = 1e9;
  return static_cast<double>(now.tv_sec) +
         static_cast<double>(now.tv_nsec) / kNanoseconds;
}

std::string StampNow() {
  using std::chrono::system_clock;
  const auto now = system_clock::now();
  const auto whole = std::chrono::floor<std::chrono::seconds>(now);
  const auto rest =
      std::chrono::duration_cast<std::chrono::milliseconds>(now - whole);
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}",
                     fmt::localtime(system_clock::to_time_t(whole)),
                     rest.count());
}

double SecondsOf(std::string_view stamp) {
  using std::chrono::day;
  using std::chrono::month;
  using std::chrono::sys_days;
  using std::chrono::year;
  const sys_days date = year(ParseNumber(stamp, 0, 4)) /
                        month(static_cast<unsigned>(ParseNumber(stamp, 5, 2))) /
                        day(static_cast<unsigned>(ParseNumber(stamp, 8, 2)));
  const double seconds =
      86400.0 * static_cast<double>(date.time_since_epoch().count()) +
      3600.0 * ParseNumber(stamp, 11, 2) + 60.0 * ParseNumber(stamp, 14, 2) +
      ParseNumber(stamp, 17, 2);
  return seconds + ParseNumber(stamp, 20, 3) / 1000.0;
}

std::optional<Record> RecordFrom(std::string_view text) {
  std::string_view rest = text;
  const auto stamp = ConsumeBracket(rest);
  if (!stamp || !IsStamp(*stamp) || !ConsumeSpace(rest)) return std::nullopt;
  const auto level_name = ConsumeBracket(rest);
  const auto level = level_name ? ParseLevel(*level_name) : std::nullopt;
  if (!level) return std::nullopt;
  ConsumeSpace(rest);
  Record record{
      .time = SecondsOf(*stamp), .stamp = std::string(*stamp), .level = *level};
  std::string_view after_component = rest;
  if (const auto name = ConsumeBracket(after_component);
      name && IsComponent(*name)) {
    record.component = *name;
    ConsumeSpace(after_component);
    rest = after_component;
  }
  if (!rest.empty() && rest.back() == '\n') rest.remove_suffix(1);
  record.message = rest;
  return record;
}

std::string LoggedForm(const Record& record) {
  std::string logged =
      fmt::format("[{}] [{}] ", record.stamp, NameOf(record.level));
  if (!record.component.empty()) {
    logged.append("[").append(record.component).append("] ");
  }
  for (const char c : record.message) {
    logged += c;
    if (c == '\n') logged += kIndent;
  }
  return logged += '\n';
}

void ReadRecords(std::string_view log,
                 const std::function<void(Record)>& handler) {
  LogSplitter splitter(handler);
  while (!log.empty()) {
    const std::size_t line_end = std::min(log.find('\n'), log.size());
    splitter.AddLine(log.substr(0, line_end));
    log.remove_prefix(std::min(line_end + 1, log.size()));
  }
  splitter.EmitRecord();
}

}  // namespace quorvane::tool
