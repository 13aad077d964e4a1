// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_UPDATE_RUN_H_
#define QUORVANE_UPDATE_UPDATE_RUN_H_

#include <string>

#include "quorvane/config.h"
#include "quorvane/http.h"
#include "quorvane/update.h"

namespace quorvane {

/// Component of all log lines of an update.
inline constexpr const char* kUpdate = "update";

/// One call of `PerformUpdate`: the input of its phases, and the result that
/// they fill in.
struct UpdateRun {
  const HttpClient& client;
  const UpdateRequest& request;
  const Config& config;
  UpdateResponse result = {};
  /// `result.task_id`, redacted. It is stored, because only the whole link of a
  /// task shows which part of its ID is secret, and a later phase can replace
  /// the link.
  std::string task_id_for_log = {};

  /// Discards the result of earlier phases.
  void ResetResult() {
    result = {};
    task_id_for_log.clear();
  }
};

/// An image file to upload.
struct ImagePath {
  std::string path;
  std::string for_log;  ///< Differs if the name is part of a secret.
};

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_UPDATE_RUN_H_
