// SPDX-License-Identifier: Apache-2.0
// The records of a log, as the library's logger writes them
// (quorvane/logging.h) and as the tool keeps them in its own logs.
//
// A message may quote a BMC, line breaks included, so a line inside a message
// can look like a record. A record from the library's process therefore arrives
// as one frame, and a log of the tool indents every line but the first of a
// record. Nothing in a log that the library itself wrote tells a record from a
// line of a message.
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
  double time = 0;  ///< Seconds on a clock of local time without leaps; only
                    ///< differences mean anything.
  std::string stamp = {};  ///< "2024-05-01 13:07:09.042"
  LogLevel level = LogLevel::INFO;
  std::string component = {};  ///< "update"; empty when the line names none.
  std::string message = {};    ///< Without the line end that closes it.
};

/// Component of the records that the tool itself writes.
constexpr const char* kToolComponent = "tool";

/// The present moment as a record states it.
std::string StampNow();

/// A stamp as `Record::time`.
double SecondsOf(std::string_view stamp);

/// The record in `text`, all of whose lines belong to it; nothing when it does
/// not start as a record does.
std::optional<Record> RecordFrom(std::string_view text);

/// A record as the tool keeps it in a log: each line of the message but the
/// first is indented. Ends in a line break.
std::string LoggedForm(const Record& record);

/// Splits a whole log into records and hands each one over. Text before the
/// first record is dropped; a last line that is cut short counts.
///
/// A log whose first record is the tool's is one of the tool: an indented line
/// continues a record, whatever it looks like. In any other log a line that
/// looks like a record is one, unless it claims to be the tool's.
void ReadRecords(std::string_view log,
                 const std::function<void(Record)>& handler);

}  // namespace quorvane::tool

#endif  // QUORVANE_TOOLS_QUORVANE_RUN_RECORDS_H_
