// SPDX-License-Identifier: Apache-2.0
#include <optional>
#include <stdexcept>
#include <string>

#include "update/helpers.h"
#include "update/phases.h"
#include "update/upload.h"

namespace quorvane {
namespace {

constexpr UploadMessages kMessages{
    .phase = "Binary upload fallback",
    .name = "Binary upload",
    .walk = {.trying = "Trying binary upload URI: ",
             .exhausted = "Binary upload URI exhausted retries: ",
             .next = "Trying next binary upload URI"},
    .no_more_uris = [](long /*status_code*/) {
      return std::string(
          "Binary upload failed: HTTP method not supported - no more URIs to "
          "try");
    }};

}  // namespace

void RunBinaryUpload(const ImagePath& image, UpdateRun& run) {
  const auto send = [&](const UriAttempt& at) -> std::optional<Response> {
    const Config& config = run.config;
    try {
      return run.client.post_binary_file(at.url, image.path, {},
                                         kImageTimeoutMs, config.username,
                                         config.password, config.auth_type);
    } catch (const std::runtime_error& failure) {
      run.result.message =
          std::string("Binary upload failed: ") + failure.what();
      return std::nullopt;
    }
  };
  RunUpload(kMessages, image, send, run);
}

}  // namespace quorvane
