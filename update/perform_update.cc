// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "config/target.h"
#include "logging/redact.h"
#include "quorvane/config.h"
#include "quorvane/http.h"
#include "quorvane/inventory.h"
#include "quorvane/logging.h"
#include "quorvane/update.h"
#include "update/download.h"
#include "update/phases.h"
#include "update/update_run.h"

namespace quorvane {
namespace {

// Some outcomes skip the reboot and the summary.
enum class NextPhase { kReboot, kStop };

void CheckRequest(const UpdateRequest& request) {
  if (request.bmc_ip.empty()) {
    throw std::runtime_error("PerformUpdate: bmc_ip must not be empty");
  }
  if (request.image_uri.empty() && request.local_file.empty()) {
    throw std::runtime_error(
        "PerformUpdate: either image_uri or local_file must be set");
  }
}

void CaptureInventory(const UpdateRequest& request) {
  if (!request.prefetched_inventory.empty()) {
    LogInfo(kUpdate, "Using pre-fetched inventory: " +
                         std::to_string(request.prefetched_inventory.size()) +
                         " items");
    return;
  }
  try {
    std::vector<InventoryItem> items;
    if (FetchInventory({.ip = request.bmc_ip,
                        .username = request.username,
                        .password = request.password},
                       items)) {
      LogInfo(kUpdate, "Pre-update inventory captured: " +
                           std::to_string(items.size()) + " items");
    } else {
      LogWarning(kUpdate, "Failed to capture pre-update inventory");
    }
  } catch (const std::runtime_error& failure) {
    LogWarning(kUpdate,
               std::string("Failed to capture pre-update inventory: ") +
                   failure.what());
  }
}

std::string AbsolutePath(const std::string& path) {
  static_assert(PATH_MAX == 4096);
  std::array<char, PATH_MAX> resolved{};
  return realpath(path.c_str(), resolved.data()) != nullptr
             ? std::string(resolved.data())
             : path;
}

// A multipart upload, and if that fails, a binary upload.
PhaseResult UploadImage(const ImagePath& image, const char* fallback_warning,
                        UpdateRun& run) {
  if (RunMultipartUpload(image, run) == PhaseResult::kSucceeded) {
    return PhaseResult::kSucceeded;
  }
  LogWarning(kUpdate, fallback_warning);
  return RunBinaryUpload(image, run);
}

// The phases between an accepted upload and the reboot: task, activation.
NextPhase FinishUpload(UpdateRun& run) {
  if (MonitorTask(run) == PhaseResult::kFailed) {
    const std::string& state = run.result.task_state;
    if (state == "Exception" || state == "Cancelled" ||
        state == "Interrupted") {
      LogError(kUpdate, "Task ended in state: " + state);
      return NextPhase::kStop;
    }
  }
  if (!run.request.targets.empty() &&
      RunActivation(run) == PhaseResult::kFailed) {
    return NextPhase::kStop;
  }
  return NextPhase::kReboot;
}

NextPhase UpdateFromLocalFile(UpdateRun& run) {
  const std::string path = AbsolutePath(run.request.local_file);
  struct stat package {};
  if (stat(path.c_str(), &package) != 0) {
    const std::string not_found = "BLX binary file not found: ";
    run.result.message = not_found + path;
    // `local_file` may be a URI by mistake.
    LogError(kUpdate, not_found + RedactUri(path));
    return NextPhase::kStop;
  }
  LogInfo(kUpdate, "Uploading BLX via Redfish");
  LogInfo(kUpdate, "Binary absolute path: " + path);
  LogInfo(kUpdate,
          "Binary size: " + std::to_string(package.st_size) + " bytes");
  LogInfo(kUpdate, "Target URI: /redfish/v1/UpdateService");

  if (UploadImage({.path = path, .for_log = path},
                  "Multipart upload failed, falling back to binary POST upload",
                  run) == PhaseResult::kSucceeded) {
    return FinishUpload(run);
  }
  LogError(kUpdate,
           "Local file upload failed. system does not support local file "
           "upload via Redfish.");
  LogError(kUpdate,
           "Please use a share repository to perform the update instead");
  return NextPhase::kStop;
}

// For a BMC that rejects SimpleUpdate.
PhaseResult UploadDownloadedImage(UpdateRun& run) {
  const ImagePath path = TemporaryPath(run.request.image_uri);
  PhaseResult result = PhaseResult::kFailed;
  {
    const auto image =
        DownloadImageToTemp(run.client, run.request.image_uri, path);
    if (!image) {
      run.result.message =
          "SimpleUpdate not supported and image download failed";
      return PhaseResult::kFailed;
    }
    result = UploadImage(path,
                         "Multipart upload of downloaded file failed, trying "
                         "binary POST",
                         run);
  }
  LogInfo(kUpdate, "Cleaned up temp file: " + path.for_log);
  return result;
}

NextPhase UpdateFromShare(UpdateRun& run) {
  if (RunSimpleUpdate(run) == PhaseResult::kSucceeded) {
    const bool has_succeeded = run.result.task_uri.empty() ||
                               MonitorTask(run) == PhaseResult::kSucceeded;
    return has_succeeded ? NextPhase::kReboot : NextPhase::kStop;
  }
  LogWarning(kUpdate,
             "SimpleUpdate failed, falling back to download + local upload");
  return UploadDownloadedImage(run) == PhaseResult::kSucceeded
             ? FinishUpload(run)
             : NextPhase::kStop;
}

void LogSummary(const UpdateRun& run) {
  const UpdateResponse& result = run.result;
  const auto yes_or_no = [](bool value) { return value ? "Yes" : "No"; };
  LogInfo(kUpdate, "========== FIRMWARE UPDATE SUMMARY ==========");
  LogInfo(kUpdate,
          std::string("Accepted        : ") + yes_or_no(result.accepted));
  LogInfo(kUpdate, "HTTP Status     : " + std::to_string(result.http_status));
  LogInfo(kUpdate, "Task URI        : " + RedactUri(result.task_uri));
  LogInfo(kUpdate, "Task ID         : " + run.task_id_for_log);
  LogInfo(kUpdate, "Task State      : " + result.task_state);
  if (result.percent_complete >= 0) {
    LogInfo(kUpdate, "Percent Complete: " +
                         std::to_string(result.percent_complete) + "%");
  }
  LogInfo(kUpdate, "Message         : " + result.message);
  LogInfo(kUpdate, std::string("Reboot Performed: ") +
                       yes_or_no(result.reboot_performed));
  LogInfo(kUpdate, std::string(46, '='));
}

}  // namespace

UpdateResponse PerformUpdate(const UpdateRequest& request) {
  CheckRequest(request);
  Config config = LoadConfigAuto();
  OverrideTarget(config, request.bmc_ip, request.username, request.password);
  const HttpClient client;
  UpdateRun run{.client = client, .request = request, .config = config};
  LogInfo(kUpdate, "========== FIRMWARE UPDATE START ==========");
  CaptureInventory(request);
  const NextPhase next = request.local_file.empty() ? UpdateFromShare(run)
                                                    : UpdateFromLocalFile(run);
  if (next == NextPhase::kReboot) {
    // The summary reports a failure as well.
    static_cast<void>(RunRebootPhase(run));
    LogSummary(run);
  }
  return std::move(run.result);
}

}  // namespace quorvane
