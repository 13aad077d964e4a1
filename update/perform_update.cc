// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <string>
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

namespace quorvane {
namespace {

// How a road ends: some endings skip the restart and the summary.
enum class Road { kToReboot, kEndsHere };

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

// From an accepted upload to the restart: the task, then the activation.
Road FollowUpload(const HttpClient& client, const UpdateRequest& request,
                  const Config& config, UpdateResponse& result) {
  if (!MonitorTask(client, config, result)) {
    const std::string& state = result.task_state;
    if (state == "Exception" || state == "Cancelled" ||
        state == "Interrupted") {
      LogError(kUpdate, "Task ended in state: " + state);
      return Road::kEndsHere;
    }
  }
  if (!request.targets.empty() &&
      !RunActivation(client, request, config, result)) {
    return Road::kEndsHere;
  }
  return Road::kToReboot;
}

Road TakeLocalRoad(const HttpClient& client, const UpdateRequest& request,
                   const Config& config, UpdateResponse& result) {
  const std::string path = AbsolutePath(request.local_file);
  struct stat package {};
  if (stat(path.c_str(), &package) != 0) {
    result.message = "BLX binary file not found: " + path;
    LogError(kUpdate, result.message);
    return Road::kEndsHere;
  }
  LogInfo(kUpdate, "Uploading BLX via Redfish");
  LogInfo(kUpdate, "Binary absolute path: " + path);
  LogInfo(kUpdate,
          "Binary size: " + std::to_string(package.st_size) + " bytes");
  LogInfo(kUpdate, "Target URI: /redfish/v1/UpdateService");

  result = RunMultipartUpload(client, path, config, request.targets);
  if (!result.accepted) {
    LogWarning(kUpdate,
               "Multipart upload failed, falling back to binary POST upload");
    result = RunBinaryUpload(client, path, config);
  }
  if (!result.accepted) {
    LogError(kUpdate,
             "Local file upload failed. system does not support local file "
             "upload via Redfish.");
    LogError(kUpdate,
             "Please use a share repository to perform the update instead");
    return Road::kEndsHere;
  }
  return FollowUpload(client, request, config, result);
}

// SimpleUpdate was refused: the library fetches the image and uploads it.
void UploadDownloadedImage(const HttpClient& client,
                           const UpdateRequest& request, const Config& config,
                           UpdateResponse& result) {
  std::string path;
  {
    const auto image = DownloadImageToTemp(client, request.image_uri);
    if (!image) {
      result.message = "SimpleUpdate not supported and image download failed";
      return;
    }
    path = image->path();
    result = RunMultipartUpload(client, path, config, request.targets);
    if (!result.accepted) {
      LogWarning(kUpdate,
                 "Multipart upload of downloaded file failed, trying binary "
                 "POST");
      result = RunBinaryUpload(client, path, config);
    }
  }
  LogInfo(kUpdate, "Cleaned up temp file: " + path);
}

Road TakeShareRoad(const HttpClient& client, const UpdateRequest& request,
                   const Config& config, UpdateResponse& result) {
  result = RunSimpleUpdate(client, request, config);
  if (result.accepted) {
    const bool good =
        result.task_uri.empty() || MonitorTask(client, config, result);
    return good ? Road::kToReboot : Road::kEndsHere;
  }
  LogWarning(kUpdate,
             "SimpleUpdate failed, falling back to download + local upload");
  UploadDownloadedImage(client, request, config, result);
  return result.accepted ? FollowUpload(client, request, config, result)
                         : Road::kEndsHere;
}

void LogSummary(const UpdateResponse& result) {
  const auto yes_or_no = [](bool truth) { return truth ? "Yes" : "No"; };
  LogInfo(kUpdate, "========== FIRMWARE UPDATE SUMMARY ==========");
  LogInfo(kUpdate,
          std::string("Accepted        : ") + yes_or_no(result.accepted));
  LogInfo(kUpdate, "HTTP Status     : " + std::to_string(result.http_status));
  LogInfo(kUpdate, "Task URI        : " + RedactUri(result.task_uri));
  LogInfo(kUpdate, "Task ID         : " + result.task_id);
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
  UpdateResponse result;
  LogInfo(kUpdate, "========== FIRMWARE UPDATE START ==========");
  CaptureInventory(request);
  const Road road = request.local_file.empty()
                        ? TakeShareRoad(client, request, config, result)
                        : TakeLocalRoad(client, request, config, result);
  if (road == Road::kEndsHere) return result;
  RunRebootPhase(client, config, result);
  LogSummary(result);
  return result;
}

}  // namespace quorvane
