// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "config/derived.h"
#include "logging/redact.h"
#include "quorvane/config.h"
#include "quorvane/http.h"
#include "quorvane/inventory.h"
#include "quorvane/logging.h"
#include "quorvane/update.h"
#include "update/download.h"
#include "update/helpers.h"
#include "update/phases.h"
#include "update/update_run.h"

namespace quorvane {
namespace {

// Some outcomes skip the restart and the summary.
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

// As a multipart form, or else as a raw body. Whether the BMC accepted it.
bool UploadImage(const ImagePath& image, const char* fallback_warning,
                 UpdateRun& run) {
  RunMultipartUpload(image, run);
  if (!run.result.accepted) {
    LogWarning(kUpdate, fallback_warning);
    RunBinaryUpload(image, run);
  }
  return run.result.accepted;
}

// From an accepted upload to the restart: the task, then the activation.
NextPhase FollowUpload(UpdateRun& run) {
  if (!MonitorTask(run)) {
    const std::string& state = run.result.task_state;
    if (state == "Exception" || state == "Cancelled" ||
        state == "Interrupted") {
      LogError(kUpdate, "Task ended in state: " + state);
      return NextPhase::kStop;
    }
  }
  if (!run.request.targets.empty() && !RunActivation(run)) {
    return NextPhase::kStop;
  }
  return NextPhase::kReboot;
}

NextPhase UpdateFromLocalFile(UpdateRun& run) {
  const std::string path = AbsolutePath(run.request.local_file);
  struct stat package {};
  if (stat(path.c_str(), &package) != 0) {
    const std::string problem = "BLX binary file not found: ";
    run.result.message = problem + path;
    // A URI that was given as a file ends up here.
    LogError(kUpdate, problem + RedactUri(path));
    return NextPhase::kStop;
  }
  LogInfo(kUpdate, "Uploading BLX via Redfish");
  LogInfo(kUpdate, "Binary absolute path: " + path);
  LogInfo(kUpdate,
          "Binary size: " + std::to_string(package.st_size) + " bytes");
  LogInfo(kUpdate, "Target URI: /redfish/v1/UpdateService");

  if (UploadImage({.path = path, .for_log = path},
                  "Multipart upload failed, falling back to binary POST upload",
                  run)) {
    return FollowUpload(run);
  }
  LogError(kUpdate,
           "Local file upload failed. system does not support local file "
           "upload via Redfish.");
  LogError(kUpdate,
           "Please use a share repository to perform the update instead");
  return NextPhase::kStop;
}

// For a BMC that rejects SimpleUpdate. Whether it accepted the image.
bool UploadDownloadedImage(UpdateRun& run) {
  const ImagePath path = TemporaryPath(run.request.image_uri);
  {
    const auto image =
        DownloadImageToTemp(run.client, run.request.image_uri, path);
    if (!image) {
      run.result.message =
          "SimpleUpdate not supported and image download failed";
      return false;
    }
    UploadImage(path,
                "Multipart upload of downloaded file failed, trying binary "
                "POST",
                run);
  }
  LogInfo(kUpdate, "Cleaned up temp file: " + path.for_log);
  return run.result.accepted;
}

NextPhase UpdateFromShare(UpdateRun& run) {
  RunSimpleUpdate(run);
  if (run.result.accepted) {
    const bool has_succeeded = run.result.task_uri.empty() || MonitorTask(run);
    return has_succeeded ? NextPhase::kReboot : NextPhase::kStop;
  }
  LogWarning(kUpdate,
             "SimpleUpdate failed, falling back to download + local upload");
  return UploadDownloadedImage(run) ? FollowUpload(run) : NextPhase::kStop;
}

void LogSummary(const UpdateRun& run) {
  const UpdateResponse& result = run.result;
  const auto yes_or_no = [](bool truth) { return truth ? "Yes" : "No"; };
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
  AimAt(request.bmc_ip, request.username, request.password, config);
  const HttpClient client;
  UpdateRun run{.client = client, .request = request, .config = config};
  LogInfo(kUpdate, "========== FIRMWARE UPDATE START ==========");
  CaptureInventory(request);
  const NextPhase next = request.local_file.empty() ? UpdateFromShare(run)
                                                    : UpdateFromLocalFile(run);
  if (next == NextPhase::kReboot) {
    RunRebootPhase(run);
    LogSummary(run);
  }
  return std::move(run.result);
}

}  // namespace quorvane
