// SPDX-License-Identifier: Apache-2.0
#include "update/uri_walk.h"

#include <cstddef>

#include "config/retry.h"
#include "config/target.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "update/update_run.h"

namespace quorvane {
namespace {

using Attempt = std::function<Step(const UriAttempt&)>;

// The result of all attempts at one URI.
enum class UriResult { kDone, kSkipped, kNoAttemptLeft };

UriResult TryUri(const Config& config, const UriAttempt& uri,
                 const Attempt& attempt) {
  for (long long retries = 0; retries <= config.max_retries; ++retries) {
    if (retries > 0) {
      SleepBeforeRetry(kUpdate, config, static_cast<int>(retries - 1));
    }
    switch (attempt(uri)) {
      case Step::kDone:
        return UriResult::kDone;
      case Step::kNextUri:
        return UriResult::kSkipped;
      case Step::kRetry:
        break;
    }
  }
  return UriResult::kNoAttemptLeft;
}

}  // namespace

bool WalkUris(const Config& config, const std::vector<std::string>& uris,
              const WalkMessages& messages, const Attempt& attempt) {
  const std::string base = BuildBaseUrl(config);
  for (std::size_t i = 0; i < uris.size(); ++i) {
    const UriAttempt uri{.uri = uris[i],
                         .url = base + uris[i],
                         .is_last_uri = i + 1 == uris.size()};
    LogInfo(kUpdate, messages.trying + UriForLog(uri.url) + " (" +
                         std::to_string(i + 1) + "/" +
                         std::to_string(uris.size()) + ")");
    switch (TryUri(config, uri, attempt)) {
      case UriResult::kDone:
        return true;
      case UriResult::kSkipped:
        break;
      case UriResult::kNoAttemptLeft:
        LogWarning(kUpdate, messages.exhausted + RedactUri(uri.uri));
        if (!uri.is_last_uri) LogInfo(kUpdate, messages.next);
        break;
    }
  }
  return false;
}

}  // namespace quorvane
