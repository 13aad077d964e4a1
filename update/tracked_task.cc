// SPDX-License-Identifier: Apache-2.0
#include "update/tracked_task.h"

#include "logging/redact.h"
#include "quorvane/logging.h"
#include "update/last_segment.h"
#include "update/response_body.h"

namespace quorvane {

void SetTaskId(const std::string& body, UpdateRun& run) {
  const std::string& uri = run.result.task_uri;
  std::string& id = run.result.task_id;
  id = ExtractTaskId(uri, body);
  run.task_id_for_log =
      id == LastSegment(uri) ? LastSegmentForLog(uri) : RedactUri(id);
}

void TrackTask(const Response& response, LogTask log_task, UpdateRun& run) {
  std::string& uri = run.result.task_uri;
  uri = ExtractTaskUri(response.body, run.config);
  const bool is_from_header = uri.empty() && !response.location.empty();
  if (is_from_header) uri = response.location;
  SetTaskId(response.body, run);
  if (log_task == LogTask::kNo || uri.empty()) return;
  const std::string uri_for_log = RedactUri(uri);
  if (is_from_header) {
    LogInfo(kUpdate, "Task URI from Location header: " + uri_for_log);
  }
  LogInfo(kUpdate, "Task URI: " + uri_for_log);
  LogInfo(kUpdate, "Task ID : " + run.task_id_for_log);
}

}  // namespace quorvane
