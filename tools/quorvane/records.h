// SPDX-License-Identifier: Apache-2.0
// The log's lines as the library's logger writes them (quorvane/logging.h).
#ifndef QUORVANE_TOOLS_QUORVANE_RECORDS_H_
#define QUORVANE_TOOLS_QUORVANE_RECORDS_H_

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quorvane/logging.h"

namespace quorvane::tool {

/// One message of the log. A message may hold line breaks: it goes on until the
/// next line that begins as a record does.
struct Record {
  double time = 0;  ///< Seconds on a clock of local time without leaps; only
                    ///< differences mean anything.
  std::string stamp = {};  ///< "2024-05-01 13:07:09.042"
  LogLevel level = LogLevel::INFO;
  std::string component = {};  ///< "update"; empty when the line names none.
  std::string message = {};
  std::string raw = {};  ///< The record's bytes, line end included if it came.
};

/// The present moment as a record states it.
std::string StampNow();

/// A stamp as `Record::time`.
double SecondsOf(std::string_view stamp);

/// The record that `line` begins, or nothing when it begins none. A response
/// body can forge such a line; nothing in a log tells it from a real one.
std::optional<Record> RecordFrom(std::string_view line);

/// Cuts a log that comes in pieces of any size into records. What stands before
/// the first record is dropped.
class RecordReader {
 public:
  using Handler = std::function<void(Record)>;
  explicit RecordReader(Handler handler) : handler_(std::move(handler)) {}

  void Feed(std::string_view bytes);
  /// The writer keeps quiet: the record at hand is whole if its line is. Lines
  /// that would still have belonged to it are dropped.
  void EndOfBurst();
  /// The log has ended, be it in the middle of a line.
  void EndOfLog();

 private:
  void TakeLine(std::string_view line);
  void HandOver();

  Handler handler_;
  std::string unfinished_line_ = {};
  std::optional<Record> record_ = {};
};

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RECORDS_H_
