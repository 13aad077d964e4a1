// SPDX-License-Identifier: Apache-2.0
#include <optional>
#include <stdexcept>
#include <string>

#include "update/phases.h"
#include "update/upload.h"

namespace quorvane {
namespace {

constexpr long kTimeoutMs = 600'000;

constexpr UploadWords kWords{
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

UpdateResponse RunBinaryUpload(const HttpClient& client,
                               const std::string& file_path,
                               const Config& config) {
  UpdateResponse result;
  const auto send = [&](const UriAttempt& at) -> std::optional<Response> {
    try {
      return client.post_binary_file(at.url, file_path, {}, kTimeoutMs,
                                     config.username, config.password,
                                     config.auth_type);
    } catch (const std::runtime_error& failure) {
      result.message = std::string("Binary upload failed: ") + failure.what();
      return std::nullopt;
    }
  };
  RunUpload(kWords, file_path, config, send, result);
  return result;
}

}  // namespace quorvane
