// SPDX-License-Identifier: Apache-2.0
// Log records: as the library's logger writes them (quorvane/logging.h), and as
// the tool writes them to its own logs.
//
// A message may quote a BMC, including line breaks, so a line inside a message
// can look like a record. Therefore the worker sends each record as one frame,
// and a log of the tool indents all lines of a record but the first. In a log
// that the library itself wrote, nothing distinguishes a record from a line
// inside a message.
#ifndef QUORVANE_TOOLS_QUORVANE_RUN_RECORDS_H_
#define QUORVANE_TOOLS_QUORVANE_RUN_RECORDS_H_

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quorvane/logging.h"

namespace quorvane::tool {

/// One message of the log.
struct Record {
  double time = 0;         ///< Seconds of a clock; only differences are
                           ///< meaningful. Of a log: local time.
  std::string stamp = {};  ///< "2024-05-01 13:07:09.042"
  LogLevel level = LogLevel::INFO;
  std::string component = {};  ///< E.g. "update"; empty if there is none.
  std::string message = {};    ///< Without the final line break.
};

/// Component of the records that the tool itself writes.
constexpr const char* kToolComponent = "tool";

/// Component of the records that only the display and the event stream need:
/// how much of a request was sent. No log contains them.
constexpr const char* kProgressComponent = "progress";

/// The current time in the format of a record.
std::string StampNow();

/// The same with the offset from UTC: "2024-05-01T13:07:09+0200" (ISO 8601).
std::string ZonedStampNow();

/// Seconds of a clock that cannot be set, and that continues while the computer
/// sleeps.
double MonotonicSeconds();

/// A stamp as `Record::time`.
double SecondsOf(std::string_view stamp);

/// The record that all lines of `text` form; nothing if the text does not start
/// like a record.
std::optional<Record> RecordFrom(std::string_view text);

/// A record in the format of the tool's logs: all lines of the message but the
/// first are indented. Ends with a line break.
std::string LoggedForm(const Record& record);

/// Splits a log into records and passes each one to `handler`. Text before the
/// first record is dropped; an incomplete last line is used.
///
/// If the first record is of the tool, it is a log of the tool: an indented
/// line continues a record, whatever it looks like. In any other log, a line
/// that looks like a record is one, unless its component is the tool.
void ReadRecords(std::string_view log,
                 const std::function<void(Record)>& handler);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_RECORDS_H_
