// SPDX-License-Identifier: Apache-2.0
#include "update/uri_walk.h"

#include <cstddef>

#include "config/derived.h"
#include "logging/redact.h"
#include "quorvane/logging.h"
#include "update/helpers.h"

namespace quorvane {
namespace {

using Attempt = std::function<Step(const UriAttempt&)>;

// kRetry here means that no try is left.
Step TryUri(const Config& config, const UriAttempt& at,
            const Attempt& attempt) {
  if (config.max_retries < 0) return Step::kRetry;
  for (int tries = 0;; ++tries) {
    const Step step = attempt(at);
    if (step != Step::kRetry || tries >= config.max_retries) return step;
    SleepBeforeRetry(kUpdate, config, tries);
  }
}

}  // namespace

bool WalkUris(const Config& config, const std::vector<std::string>& uris,
              const WalkMessages& messages, const Attempt& attempt) {
  const std::string base = BuildBaseUrl(config);
  for (std::size_t i = 0; i < uris.size(); ++i) {
    const UriAttempt at{.uri = uris[i],
                        .url = base + uris[i],
                        .is_last_uri = i + 1 == uris.size()};
    LogInfo(kUpdate, messages.trying + UriForLog(at.url) + " (" +
                         std::to_string(i + 1) + "/" +
                         std::to_string(uris.size()) + ")");
    const Step step = TryUri(config, at, attempt);
    if (step == Step::kDone) return true;
    if (step == Step::kNextUri) continue;
    LogWarning(kUpdate, messages.exhausted + RedactUri(at.uri));
    if (!at.is_last_uri) LogInfo(kUpdate, messages.next);
  }
  return false;
}

}  // namespace quorvane
