// SPDX-License-Identifier: Apache-2.0
#ifndef QUORVANE_UPDATE_UPDATE_RUN_H_
#define QUORVANE_UPDATE_UPDATE_RUN_H_

#include <string>

#include "quorvane/config.h"
#include "quorvane/http.h"
#include "quorvane/update.h"

namespace quorvane {

/// One call of `PerformUpdate`: what its phases read, and the result that they
/// build up.
struct UpdateRun {
  const HttpClient& client;
  const UpdateRequest& request;
  const Config& config;
  UpdateResponse result = {};
  /// `result.task_id`, redacted. Kept, because an ID taken from a link shows
  /// only together with that link which part of it is secret, and a later phase
  /// may replace the link.
  std::string task_id_for_log = {};

  /// Forgets the result of the phases so far.
  void ResetResult() {
    result = {};
    task_id_for_log.clear();
  }
};

/// An image file to upload.
struct ImagePath {
  std::string path;
  std::string for_log;  ///< Differs if the name was cut from a secret.
};

}  // namespace quorvane

#endif  // QUORVANE_UPDATE_UPDATE_RUN_H_
