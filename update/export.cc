// SPDX-License-Identifier: Apache-2.0
#include <string>

#include "logging/save_document.h"
#include "quorvane/update.h"
#include "support/json.h"
#include "update/update_run.h"

namespace quorvane {

std::string UpdateResponseToJson(const UpdateResponse& response) {
  const JsonPtr root = NewObject();
  AddBool(root.get(), "accepted", response.accepted);
  AddNumber(root.get(), "http_status",
            static_cast<double>(response.http_status));
  AddString(root.get(), "task_uri", response.task_uri);
  AddString(root.get(), "task_id", response.task_id);
  AddString(root.get(), "task_state", response.task_state);
  if (response.percent_complete >= 0) {
    AddNumber(root.get(), "percent_complete", response.percent_complete);
  } else {
    AddNull(root.get(), "percent_complete");
  }
  AddString(root.get(), "message", response.message);
  AddBool(root.get(), "reboot_performed", response.reboot_performed);
  return PrintJson(root.get());
}

bool SaveUpdateResponseJson(const std::string& path,
                            const UpdateResponse& response) {
  return SaveDocument(kUpdate, path, UpdateResponseToJson(response));
}

}  // namespace quorvane
