// SPDX-License-Identifier: Apache-2.0
#include "tools/quorvane/commands/event_stream.h"

#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "tools/quorvane/base/error.h"
#include "tools/quorvane/base/safe_file.h"
#include "tools/quorvane/base/terminal.h"
#include "tools/quorvane/base/text.h"

namespace quorvane::tool {
namespace {

constexpr const char* kStandardOutput = "-";

// "2024-05-01 13:07:09.042" as "2024-05-01T13:07:09.042+02:00" (RFC 3339,
// section 5.6).
std::string Rfc3339(std::string stamp) {
  constexpr std::size_t kDate = 10;
  constexpr std::size_t kOffset = 5;
  std::string offset = ZonedStampNow();
  offset.erase(0, offset.size() - kOffset);
  if (stamp.size() > kDate) stamp[kDate] = 'T';
  return stamp + offset.substr(0, 3) + ":" + offset.substr(3);
}

}  // namespace

EventStream::EventStream(std::string path) : path_(std::move(path)) {
  if (path_.empty()) return;
  file_ = path_ == kStandardOutput ? Descriptor(dup(STDOUT_FILENO))
                                   : OpenForAppending(path_);
  const bool is_ready =
      file_.IsOpen() &&
      (path_ == kStandardOutput || ftruncate(file_.get(), 0) == 0 ||
       errno == EINVAL);  // /dev/null has no size
  if (is_ready) return;
  throw ToolError(ExitCode::kUsage,
                  fmt::format("Cannot write the events {}: {}. Use --events "
                              "with a file in a directory of your own.",
                              path_, std::generic_category().message(errno)));
}

void EventStream::Write(const Event& event) {
  if (!file_.IsOpen() || has_failed_ || event.kind == EventKind::kOther) return;
  if (event.phase != Phase::kNone) phase_ = event.phase;
  nlohmann::json json = ToJson(event);
  json["time"] = Rfc3339(event.stamp);
  json["phase"] = NameOf(phase_);
  const std::string line =
      EscapedJson(
          json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)) +
      "\n";
  if (WriteAll(file_.get(), line)) return;
  has_failed_ = true;
  PrintMessage(
      fmt::format("Cannot write the events {} any more: {}. The run "
                  "continues without them.",
                  path_, std::generic_category().message(errno)));
}

}  // namespace quorvane::tool
