// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/records.h"

#include <fmt/chrono.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <utility>

namespace quorvane::tool {
namespace {

constexpr std::string_view kStampForm = "dddd-dd-dd dd:dd:dd.ddd";

bool IsStamp(std::string_view text) {
  if (text.size() != kStampForm.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool is_digit = text[i] >= '0' && text[i] <= '9';
    if (kStampForm[i] == 'd' ? !is_digit : text[i] != kStampForm[i]) {
      return false;
    }
  }
  return true;
}

int Number(std::string_view stamp, std::size_t from, std::size_t length) {
  int number = 0;
  std::from_chars(stamp.data() + from, stamp.data() + from + length, number);
  return number;
}

std::optional<LogLevel> LevelNamed(std::string_view name) {
  constexpr std::array<std::pair<std::string_view, LogLevel>, 4> kLevels = {
      {{"DEBUG  ", LogLevel::DEBUG},
       {"INFO   ", LogLevel::INFO},
       {"WARNING", LogLevel::WARNING},
       {"ERROR  ", LogLevel::ERROR}}};
  for (const auto& [spelling, level] : kLevels) {
    if (name == spelling) return level;
  }
  return std::nullopt;
}

// Takes "[text]" off the front of `line`.
std::optional<std::string_view> TakeBracket(std::string_view& line) {
  if (line.empty() || line.front() != '[') return std::nullopt;
  const std::size_t end = line.find(']');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view inside = line.substr(1, end - 1);
  line.remove_prefix(end + 1);
  return inside;
}

bool TakeBlank(std::string_view& line) {
  if (line.empty() || line.front() != ' ') return false;
  line.remove_prefix(1);
  return true;
}

// The components that log; a message may itself begin with a bracket
// ("[RF-TASK] ..."), so not every bracket names one.
bool IsComponent(std::string_view name) {
  return !name.empty() &&
         name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_") ==
             std::string_view::npos;
}

}  // namespace

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
  const sys_days date = year(Number(stamp, 0, 4)) /
                        month(static_cast<unsigned>(Number(stamp, 5, 2))) /
                        day(static_cast<unsigned>(Number(stamp, 8, 2)));
  const double seconds =
      86400.0 * static_cast<double>(date.time_since_epoch().count()) +
      3600.0 * Number(stamp, 11, 2) + 60.0 * Number(stamp, 14, 2) +
      Number(stamp, 17, 2);
  return seconds + Number(stamp, 20, 3) / 1000.0;
}

std::optional<Record> RecordFrom(std::string_view line) {
  const std::string_view raw = line;
  const auto stamp = TakeBracket(line);
  if (!stamp || !IsStamp(*stamp) || !TakeBlank(line)) return std::nullopt;
  const auto level_name = TakeBracket(line);
  const auto level = level_name ? LevelNamed(*level_name) : std::nullopt;
  if (!level) return std::nullopt;
  TakeBlank(line);
  Record record{.time = SecondsOf(*stamp),
                .stamp = std::string(*stamp),
                .level = *level,
                .component = {},
                .message = {},
                .raw = std::string(raw)};
  std::string_view rest = line;
  if (const auto name = TakeBracket(rest); name && IsComponent(*name)) {
    record.component = *name;
    TakeBlank(rest);
    line = rest;
  }
  record.message = line;
  return record;
}

void RecordReader::Feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t line_end = bytes.find('\n');
    if (line_end == std::string_view::npos) {
      unfinished_line_ += bytes;
      return;
    }
    if (unfinished_line_.empty()) {
      TakeLine(bytes.substr(0, line_end));
    } else {
      unfinished_line_ += bytes.substr(0, line_end);
      TakeLine(std::exchange(unfinished_line_, {}));
    }
    if (record_) record_->raw += '\n';
    bytes.remove_prefix(line_end + 1);
  }
}

void RecordReader::EndOfBurst() {
  if (unfinished_line_.empty()) HandOver();
}

void RecordReader::EndOfLog() {
  if (!unfinished_line_.empty()) {
    TakeLine(std::exchange(unfinished_line_, {}));
  }
  HandOver();
}

void RecordReader::TakeLine(std::string_view line) {
  if (std::optional<Record> begun = RecordFrom(line)) {
    HandOver();
    record_ = std::move(begun);
  } else if (record_) {
    record_->message.append("\n").append(line);
    record_->raw += line;
  }
}

void RecordReader::HandOver() {
  if (!record_) return;
  // The logger ends a file's earlier run with an empty line.
  std::string& message = record_->message;
  while (!message.empty() && message.back() == '\n') message.pop_back();
  handler_(*std::exchange(record_, std::nullopt));
}

}  // namespace quorvane::tool
