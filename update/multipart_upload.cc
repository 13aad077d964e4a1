// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "quorvane/logging.h"
#include "support/json.h"
#include "update/helpers.h"
#include "update/phases.h"
#include "update/upload.h"

namespace quorvane {
namespace {

constexpr UploadMessages kMessages{
    .phase = "Multipart upload",
    .name = "Upload",
    .walk = {.trying = "Trying upload URI: ",
             .exhausted = "Upload URI exhausted retries: ",
             .next = "Trying next upload URI"},
    .no_more_uris = [](long status_code) {
      return "Upload failed: HTTP " + std::to_string(status_code) +
             " - no more URIs to try.";
    }};

// A MultipartUpload endpoint wants its parameters in any case, and is told to
// apply the image at the next reset (DSP0266, "Operation apply time"); others
// are told the targets, if there are any.
std::string UpdateParameters(const std::string& uri,
                             const std::vector<std::string>& targets) {
  const bool is_multipart_upload =
      uri.find("MultipartUpload") != std::string::npos;
  if (!is_multipart_upload && targets.empty()) return {};
  const JsonPtr parameters = NewObject();
  AddStrings(parameters.get(), "Targets", targets);
  if (is_multipart_upload) {
    LogInfo(kUpdate, "Including UpdateParameters for Korvo MultipartUpload");
    AddString(parameters.get(), "@Redfish.OperationApplyTime", "OnReset");
  } else {
    LogInfo(kUpdate,
            "Including UpdateParameters with targets for upload endpoint");
  }
  return PrintJsonUnformatted(parameters.get());
}

}  // namespace

void RunMultipartUpload(const ImagePath& image, UpdateRun& run) {
  const auto send = [&](const UriAttempt& at) {
    const Config& config = run.config;
    const std::string parameters =
        UpdateParameters(at.uri, run.request.targets);
    return AnswerOrNone([&] {
      return run.client.post_multipart(
          at.url, image.path, "UpdateFile", {}, kImageTimeoutMs,
          config.username, config.password, config.auth_type, parameters);
    });
  };
  RunUpload(kMessages, image, send, run);
}

}  // namespace quorvane
